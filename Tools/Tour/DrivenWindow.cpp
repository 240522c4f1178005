#include "Tools/Tour/DrivenWindow.h"

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/json.hpp>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace fs = std::filesystem;
namespace json = boost::json;
using boost::asio::local::stream_protocol;
using namespace std::chrono;
using namespace std::chrono_literals;

namespace {

constexpr seconds startTime = 20s;
/// Longer than the program waits for an item.
constexpr seconds replyTime = 30s;

} // namespace

DrivenWindow::DrivenWindow(fs::path socketFile) : m_socketFile(std::move(socketFile))
{
    const auto deadline = steady_clock::now() + startTime;
    while (!stream_protocol::iostream(stream_protocol::endpoint(m_socketFile))) {
        if (steady_clock::now() >= deadline)
            throw std::runtime_error("no program listens on " + m_socketFile.string());
        std::this_thread::sleep_for(10ms);
    }
}

void DrivenWindow::waitFor(std::string_view item) const
{
    perform({{"action", "waitFor"}, {"item", item}});
}

void DrivenWindow::waitUntilGone(std::string_view item) const
{
    perform({{"action", "waitUntilGone"}, {"item", item}});
}

void DrivenWindow::tap(std::string_view item) const
{
    perform({{"action", "tap"}, {"item", item}});
}

std::string DrivenWindow::text(std::string_view item) const
{
    return json::value_to<std::string>(perform({{"action", "text"}, {"item", item}}).at("text"));
}

void DrivenWindow::resize(int width, int height) const
{
    perform({{"action", "resize"}, {"width", width}, {"height", height}});
}

void DrivenWindow::close() const
{
    perform({{"action", "close"}});
}

void DrivenWindow::grab(const fs::path& file) const
{
    perform({{"action", "grab"}, {"file", fs::absolute(file).native()}});
}

json::object DrivenWindow::perform(const json::object& command) const
{
    stream_protocol::iostream stream;
    stream.expires_after(replyTime);
    stream.connect(stream_protocol::endpoint(m_socketFile));
    stream << command << std::endl;
    std::string line;
    if (!std::getline(stream, line))
        throw std::runtime_error(json::serialize(command) + ": no reply: " + stream.error().message());
    json::object reply = json::parse(line).as_object();
    if (const json::value* error = reply.if_contains("error"))
        throw std::runtime_error(json::serialize(command) + ": " + std::string(error->as_string()));
    return reply;
}
