#include "Tools/qvctl/AppJournal.h"

#include "Platform/Linux/FileDescriptor.h"
#include "Platform/Linux/JournalLog.h"
#include "Tools/qvctl/NetworkSteps.h"

#include <fmt/format.h>
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-id128.h>
#include <systemd/sd-journal.h>

#include <array>
#include <chrono>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace Qvctl {

namespace {

struct JournalDeleter {
    void operator()(sd_journal* journal) const { sd_journal_close(journal); }
};

void require(int result)
{
    if (result < 0)
        throw StepError(Platform::Linux::errorText(-result));
}

void match(sd_journal* journal, const std::string& field)
{
    require(sd_journal_add_match(journal, field.data(), field.size()));
}

std::string bootIdentifier()
{
    sd_id128_t boot{};
    require(sd_id128_get_boot(&boot));
    std::array<char, SD_ID128_STRING_MAX> text{};
    return sd_id128_to_string(boot, text.data());
}

/// Empty when the entry has no such field.
std::string fieldOf(sd_journal* journal, const std::string& name)
{
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (sd_journal_get_data(journal, name.c_str(), &bytes, &size) < 0 || size <= name.size())
        return {};
    return std::string(static_cast<const char*>(bytes), size).substr(name.size() + 1);
}

} // namespace

std::vector<JournalLine> readJournal(const std::string& identifier, std::optional<pid_t> process,
                                     std::size_t maximumCount)
{
    if (!Platform::Linux::JournalLog::isAvailable())
        throw StepError("this device has no journal; the app writes to standard error");
    sd_journal* opened = nullptr;
    require(sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY));
    const std::unique_ptr<sd_journal, JournalDeleter> journal(opened);
    match(opened, "SYSLOG_IDENTIFIER=" + identifier);
    match(opened, fmt::format("_UID={}", ::geteuid()));
    if (process) {
        match(opened, fmt::format("_PID={}", *process));
        match(opened, "_BOOT_ID=" + bootIdentifier());
    }
    std::vector<JournalLine> lines;
    require(sd_journal_seek_tail(opened));
    while (lines.size() < maximumCount && sd_journal_previous(opened) > 0) {
        std::uint64_t microseconds = 0;
        require(sd_journal_get_realtime_usec(opened, &microseconds));
        const std::chrono::system_clock::time_point time{std::chrono::microseconds(microseconds)};
        lines.push_back({Platform::Date::fromSystemTime(time), fieldOf(opened, "QV_CATEGORY"),
                         fieldOf(opened, "QV_LEVEL"), fieldOf(opened, "MESSAGE")});
    }
    return lines;
}

} // namespace Qvctl
