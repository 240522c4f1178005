#include "Tools/qvctl/Bundle/SystemDescription.h"

#include "Platform/Error.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/TimeText.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl::Bundle {

namespace {

namespace json = boost::json;
namespace fs = std::filesystem;

/// The installed versions of our packages and those they depend on.
json::object installedPackages()
{
    constexpr std::chrono::seconds timeLimit{10};
    const auto outcome = Doctor::runSecondProcess(
        "/usr/bin/dpkg-query",
        {"--show", "--showformat=${db:Status-Abbrev}${Package} ${Version}\\n", "quorvane-mdm", "qvctl",
         "kunifiedpush", "libqt6core6*", "libsqlite3-0", "libcurl4*", "libssl3*", "libsystemd0",
         "libsdbus-c++*", "libc6", "dbus-user-session", "apparmor"},
        timeLimit);
    constexpr std::string_view installed = "ii ";
    json::object versions;
    std::istringstream lines(outcome.output); // Includes messages about packages that are not installed.
    for (std::string line; std::getline(lines, line);) {
        const auto space = line.find(' ', installed.size());
        if (line.starts_with(installed) && space != std::string::npos)
            versions[line.substr(installed.size(), space - installed.size())] = line.substr(space + 1);
    }
    return versions;
}

std::string systemName()
{
    constexpr std::string_view field = "PRETTY_NAME=";
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);) {
        if (line.starts_with(field) && line.size() > field.size() + 1)
            return line.substr(field.size() + 1, line.size() - field.size() - 2); // In quotation marks.
    }
    return "unknown";
}

std::string ownerOf(const struct stat& status)
{
    return status.st_uid == ::geteuid() ? "this user" : status.st_uid == 0 ? "root" : "other";
}

void appendFile(std::string& list, const fs::path& path, const Redaction& redaction)
{
    struct stat status {};
    const std::string name = redaction.redact(path.string());
    if (::lstat(path.c_str(), &status) != 0) {
        list += fmt::format("{}: {}\n", name, Platform::errorText(errno));
        return;
    }
    list += fmt::format("{:06o} {:<9} {:>10} {} {}\n", status.st_mode, ownerOf(status), status.st_size,
                        dateFromUnixTime(status.st_mtime).utcText(), name);
}

} // namespace

json::object describePlatform()
{
    utsname kernel{};
    ::uname(&kernel);
    json::object object{{"qvctl", QV_VERSION},
                        {"time", Platform::SystemClock().now().utcText()},
                        {"system", systemName()},
                        {"kernel", fmt::format("{} {} {}", kernel.sysname, kernel.release, kernel.machine)},
                        {"isRoot", ::geteuid() == 0},
                        {"packages", installedPackages()}};
    for (const char* variable : {"XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        object[variable] = value != nullptr ? json::value(value) : json::value();
    }
    return object;
}

std::string listFiles(const std::vector<fs::path>& folders, const Redaction& redaction)
{
    constexpr int maximumFileCount = 1000;
    std::string list;
    for (const fs::path& folder : folders) {
        appendFile(list, folder, redaction);
        std::error_code error;
        int count = 0;
        for (fs::recursive_directory_iterator file(folder, error), end; !error && file != end;
             file.increment(error)) {
            if (++count > maximumFileCount) {
                list += "and more\n";
                break;
            }
            appendFile(list, file->path(), redaction);
        }
    }
    return list;
}

} // namespace Qvctl::Bundle
