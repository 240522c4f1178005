#include "Tools/Tour/ThrowawayDevice.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>

namespace fs = std::filesystem;

ThrowawayDevice::ThrowawayDevice(fs::path programs) : m_programs(std::move(programs))
{
    std::string pattern = fs::temp_directory_path() / "quorvane-device.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), pattern);
    m_folder = pattern;
    ::umask(022); // The app rejects a policy that other users can write.
    fs::create_directory(path("policy"));
    fs::create_directory(path("run"));
    fs::permissions(path("run"), fs::perms::owner_all);
    const char* otherPlugins = std::getenv("QT_PLUGIN_PATH");
    m_environment = {{"XDG_DATA_HOME", path("data")},
                     {"XDG_RUNTIME_DIR", path("run")},
                     {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path("run/bus").string()},
                     {"QUORVANE_MANAGED_CONFIGURATION", policyFile()},
                     {"QUORVANE_LOG_PRIVATE_DATA", "show"},
                     {"QT_QPA_PLATFORM", "offscreen"},
                     {"QT_QUICK_BACKEND", "software"},
                     {"NO_COLOR", "1"},
                     {"LC_ALL", "C.UTF-8"},
                     {"LANGUAGE", "en"},
                     {"QT_QPA_GENERIC_PLUGINS", "QuorvaneWindowDriver"},
                     {"QT_PLUGIN_PATH", fs::absolute(m_programs / "Tools/Tour/plugins").string() + ":" +
                                            (otherPlugins != nullptr ? otherPlugins : "")},
                     {"QUORVANE_WINDOW_DRIVER", windowSocket()}};
}

ThrowawayDevice::~ThrowawayDevice()
{
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void ThrowawayDevice::write(const fs::path& file, std::string_view content) const
{
    std::ofstream stream(file, std::ios::binary);
    stream << content;
    stream.close();
    if (!stream)
        throw std::system_error(errno, std::generic_category(), file.string());
}

std::string ThrowawayDevice::read(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void ThrowawayDevice::replacePolicy(std::string_view content) const
{
    write(path("policy/next"), content);
    fs::rename(path("policy/next"), policyFile());
}

std::unique_ptr<ChildProcess> ThrowawayDevice::startShell(const std::string& script) const
{
    auto environment = m_environment;
    environment["DEVICE"] = m_folder;
    environment["PROGRAMS"] = m_programs;
    environment["QVCTL"] = m_programs / "Tools/qvctl/qvctl";
    return std::make_unique<ChildProcess>(std::vector<std::string>{"bash", "-c", script}, environment);
}

std::unique_ptr<ChildProcess> ThrowawayDevice::start(std::string_view program,
                                                     const std::vector<std::string>& arguments) const
{
    std::vector<std::string> all{m_programs / program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return startProgram(all);
}
