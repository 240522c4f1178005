#include "Tools/Tour/DrivenWindow.h"

#include <boost/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

namespace json = boost::json;
using Platform::Linux::FileDescriptor;
using namespace std::chrono;
using namespace std::chrono_literals;

namespace {

/// The program has it to answer after a time-out that it was told.
constexpr milliseconds answerTime = 10s;
constexpr milliseconds connectInterval = 10ms;

sockaddr_un addressOf(const std::filesystem::path& socketFile)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string& path = socketFile.native();
    if (path.size() >= sizeof address.sun_path)
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

FileDescriptor connectTo(const std::filesystem::path& socketFile, steady_clock::time_point deadline)
{
    const sockaddr_un address = addressOf(socketFile);
    while (true) {
        FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            return socket;
        const int error = errno;
        if ((error != ENOENT && error != ECONNREFUSED) || steady_clock::now() >= deadline)
            throw std::runtime_error("no window can be driven at " + socketFile.string() + ": " +
                                     Platform::Linux::errorText(error));
        std::this_thread::sleep_for(connectInterval);
    }
}

std::string text(const json::value& value)
{
    return std::string(value.as_string());
}

double number(const json::object& object, std::string_view name)
{
    return object.at(name).to_number<double>();
}

} // namespace

ChildProcess::Environment windowDriverEnvironment(const std::filesystem::path& programs,
                                                  const std::filesystem::path& socketFile)
{
    std::string plugins = std::filesystem::absolute(programs / "Tools/Tour/plugins");
    if (const char* others = std::getenv("QT_PLUGIN_PATH"); others != nullptr && *others != '\0')
        plugins.append(":").append(others);
    return {{"QT_QPA_GENERIC_PLUGINS", "QuorvaneWindowDriver"},
            {"QT_PLUGIN_PATH", plugins},
            {"QUORVANE_WINDOW_DRIVER", std::filesystem::absolute(socketFile)}};
}

DrivenWindow::DrivenWindow(const std::filesystem::path& socketFile, Timeout timeout)
{
    const auto deadline = steady_clock::now() + timeout;
    m_socket = connectTo(socketFile, deadline);
    ask({{"do", "showWindow"}}, std::max(1ms, ceil<milliseconds>(deadline - steady_clock::now())));
}

DrivenWindow::Geometry DrivenWindow::waitFor(std::string_view item, Timeout timeout)
{
    const auto found = ask({{"do", "waitFor"}, {"item", item}}, timeout);
    return {number(found, "x"), number(found, "y"), number(found, "width"), number(found, "height")};
}

void DrivenWindow::waitUntilGone(std::string_view item, Timeout timeout)
{
    ask({{"do", "waitUntilGone"}, {"item", item}}, timeout);
}

void DrivenWindow::waitForProperty(std::string_view item, std::string_view property, std::string_view value,
                                   Timeout timeout)
{
    ask({{"do", "waitForProperty"}, {"item", item}, {"property", property}, {"value", value}}, timeout);
}

void DrivenWindow::tap(std::string_view item)
{
    act("tap", item);
}

void DrivenWindow::doubleTap(std::string_view item)
{
    act("doubleTap", item);
}

void DrivenWindow::touchTap(std::string_view item)
{
    act("touchTap", item);
}

void DrivenWindow::press(std::string_view item)
{
    act("press", item);
}

void DrivenWindow::release()
{
    ask({{"do", "release"}});
}

void DrivenWindow::swipe(Point from, Point to, milliseconds duration)
{
    ask({{"do", "swipe"},
         {"fromX", from.x},
         {"fromY", from.y},
         {"toX", to.x},
         {"toY", to.y},
         {"duration", duration.count()}},
        duration + usualTimeout);
}

void DrivenWindow::typeKey(std::string_view key)
{
    ask({{"do", "key"}, {"key", key}});
}

std::string DrivenWindow::property(std::string_view item, std::string_view property)
{
    return text(ask({{"do", "property"}, {"item", item}, {"property", property}}).at("value"));
}

DrivenWindow::Accessible DrivenWindow::accessible(std::string_view item)
{
    const auto told = ask({{"do", "accessible"}, {"item", item}});
    return {text(told.at("role")), text(told.at("name"))};
}

std::vector<std::string> DrivenWindow::namesOnView()
{
    return json::value_to<std::vector<std::string>>(ask({{"do", "names"}}).at("names"));
}

std::string DrivenWindow::itemInFocus()
{
    return text(ask({{"do", "focus"}}).at("item"));
}

void DrivenWindow::resize(int width, int height)
{
    ask({{"do", "resize"}, {"width", width}, {"height", height}});
}

void DrivenWindow::grab(const std::filesystem::path& file)
{
    ask({{"do", "grab"}, {"file", std::filesystem::absolute(file).native()}});
}

void DrivenWindow::startCountingFrames()
{
    ask({{"do", "startFrames"}});
}

DrivenWindow::Frames DrivenWindow::stopCountingFrames()
{
    using Milliseconds = duration<double, std::milli>;
    const auto frames = ask({{"do", "stopFrames"}});
    return {frames.at("count").to_number<std::int64_t>(), Milliseconds(number(frames, "period")),
            Milliseconds(number(frames, "longestGap"))};
}

void DrivenWindow::act(std::string_view action, std::string_view item)
{
    ask({{"do", action}, {"item", item}});
}

json::object DrivenWindow::ask(const json::object& request, Timeout timeout)
{
    json::object timed = request;
    timed["timeout"] = timeout.count();
    const std::string line = json::serialize(timed) + "\n";
    // Far less than the socket's buffer takes at once.
    if (::send(m_socket.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("the program with the window has ended");
    json::object answer = json::parse(readLine(steady_clock::now() + timeout + answerTime)).as_object();
    if (const json::value* refusal = answer.if_contains("error"))
        throw std::runtime_error(text(*refusal));
    return answer;
}

std::string DrivenWindow::readLine(steady_clock::time_point deadline)
{
    while (true) {
        if (const auto end = m_received.find('\n'); end != std::string::npos) {
            std::string line = m_received.substr(0, end);
            m_received.erase(0, end + 1);
            return line;
        }
        pollfd waiting{m_socket.get(), POLLIN, 0};
        const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) == 0)
            throw std::runtime_error("the program with the window does not answer");
        std::array<char, 4096> chunk;
        const ssize_t count = ::recv(m_socket.get(), chunk.data(), chunk.size(), 0);
        if (count == 0 || (count < 0 && errno != EINTR))
            throw std::runtime_error("the program with the window has ended");
        m_received.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}
