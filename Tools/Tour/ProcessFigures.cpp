#include "Tools/Tour/ProcessFigures.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kibibyte = 1024;

fs::path folderOf(pid_t process)
{
    return fs::path("/proc") / std::to_string(process);
}

/// Returns the sum of the numbers in lines "NAME: NUMBER" whose name starts with `name`.
std::int64_t sumIn(const fs::path& file, std::string_view name)
{
    std::ifstream stream(file);
    std::int64_t sum = 0;
    bool isFound = false;
    for (std::string line; std::getline(stream, line);) {
        if (!line.starts_with(name))
            continue;
        sum += std::stoll(line.substr(line.find(':') + 1));
        isFound = true;
    }
    return isFound ? sum : throw std::runtime_error(file.string() + " has no such figure");
}

} // namespace

std::int64_t residentBytes(pid_t process)
{
    return sumIn(folderOf(process) / "smaps_rollup", "Rss") * kibibyte;
}

std::int64_t peakResidentBytes(pid_t process)
{
    return sumIn(folderOf(process) / "status", "VmHWM") * kibibyte;
}

std::int64_t privateBytes(pid_t process)
{
    return sumIn(folderOf(process) / "smaps_rollup", "Private_Dirty") * kibibyte;
}

std::int64_t sleepCount(pid_t process)
{
    std::int64_t sum = 0;
    for (const auto& thread : fs::directory_iterator(folderOf(process) / "task"))
        sum += sumIn(thread.path() / "status", "voluntary_ctxt_switches");
    return sum;
}

std::chrono::nanoseconds processorTime(pid_t process)
{
    std::chrono::nanoseconds sum{0};
    for (const auto& thread : fs::directory_iterator(folderOf(process) / "task")) {
        std::int64_t nanoseconds = 0;
        if (!(std::ifstream(thread.path() / "schedstat") >> nanoseconds))
            throw std::runtime_error(thread.path().string() + " has no such figure");
        sum += std::chrono::nanoseconds(nanoseconds);
    }
    return sum;
}

std::int64_t descriptorCount(pid_t process)
{
    return std::distance(fs::directory_iterator(folderOf(process) / "fd"), fs::directory_iterator());
}

std::int64_t threadCount(pid_t process)
{
    return sumIn(folderOf(process) / "status", "Threads");
}
