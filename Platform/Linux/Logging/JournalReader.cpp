#include "Platform/Linux/Logging/JournalReader.h"

#include "Platform/Linux/Logging/JournalFields.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/Storage/FileDescriptor.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <limits>
#include <system_error>
#include <systemd/sd-journal.h>
#include <utility>

namespace Platform::Linux::Logging {

namespace {

namespace fs = std::filesystem;

/// Throws if `result` is a negative error number, as returned by libsystemd.
int checked(int result)
{
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), "the journal");
    return result;
}

std::optional<uid_t> userNumber(const std::string& text)
{
    uid_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Returns whether this device has journal files, or a journal folder that this user may not read.
bool hasJournalFiles()
{
    for (const char* folder : {"/run/log/journal", "/var/log/journal"}) {
        std::error_code error;
        fs::recursive_directory_iterator entries(folder, error);
        if (error == std::errc::permission_denied)
            return true;
        for (; !error && entries != fs::end(entries); entries.increment(error)) {
            if (entries->path().extension() == ".journal")
                return true;
        }
        if (error == std::errc::permission_denied)
            return true;
    }
    return false;
}

} // namespace

bool JournalEntry::isFrom(std::string_view name) const
{
    // Added by the kernel if the executable was replaced or removed while the program ran.
    constexpr std::string_view removedMark = " (deleted)";
    std::string_view path = program;
    if (path.ends_with(removedMark))
        path.remove_suffix(removedMark.size());
    return path.empty() || fs::path(path).filename() == name;
}

void JournalReader::Closer::operator()(sd_journal* journal) const
{
    sd_journal_close(journal);
}

JournalReader::JournalReader(Selection selection) : m_selection(std::move(selection))
{
    sd_journal* journal = nullptr;
    const int result = sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY);
    m_journal.reset(result >= 0 ? journal : nullptr);
    // sd_journal_open() silently skips files that this user may not read.
    const bool isReadable = m_journal && (sd_journal_has_runtime_files(journal) > 0 ||
                                          sd_journal_has_persistent_files(journal) > 0);
    if (!isReadable)
        throw JournalUnavailable(
            hasJournalFiles()
                ? "This user may not read the journal of this device. Run this command as root, or join the "
                  "group systemd-journal (usermod -aG systemd-journal USER)."
                : "There is no journal on this device. Without one, the app logs to standard error.");

    match(JournalFields::identifier, m_selection.identifier);
    if (m_selection.user)
        match(JournalFields::user, std::to_string(*m_selection.user));
    for (const auto level :
         {LogType::debug, LogType::info, LogType::default_, LogType::error, LogType::fault}) {
        if (level >= m_selection.lowestLevel)
            match(JournalFields::level, severityName(level));
    }
    goToStart();
}

JournalReader::~JournalReader() = default;

/// Adds a match. An entry must match one value of each field added.
void JournalReader::match(std::string_view field, std::string_view value)
{
    const std::string text = std::string(field).append("=").append(value);
    checked(sd_journal_add_match(m_journal.get(), text.data(), text.size()));
}

void JournalReader::goToStart()
{
    sd_journal* journal = m_journal.get();
    if (const auto limit = m_selection.limit) {
        checked(sd_journal_seek_tail(journal));
        // Step back at least once: the tail moves when entries are added.
        const bool hasStepped = goBack(std::max<std::uint64_t>(*limit, 1));
        m_isAtUnreadEntry = hasStepped && *limit > 0;
        if (hasStepped)
            return;
    }
    if (const auto since = m_selection.since) {
        const double seconds =
            since->secondsSinceReferenceDate + static_cast<double>(Date::referenceSinceUnixEpoch.count());
        checked(
            sd_journal_seek_realtime_usec(journal, static_cast<std::uint64_t>(std::max(0.0, seconds) * 1e6)));
    } else {
        checked(sd_journal_seek_head(journal));
    }
}

/// Steps back by `count` selected entries, or to the first entry. Returns whether there is any entry.
bool JournalReader::goBack(std::uint64_t count)
{
    bool hasStepped = false;
    while (count > 0 && checked(sd_journal_previous_skip(m_journal.get(), 1)) > 0) {
        hasStepped = true;
        if (isSelected(entry()))
            --count;
    }
    return hasStepped;
}

/// Checks the program's name, which cannot be expressed as a journal match.
bool JournalReader::isSelected(const JournalEntry& entry) const
{
    return !m_selection.user || entry.isFrom(m_selection.identifier);
}

std::optional<JournalEntry> JournalReader::next()
{
    while (std::exchange(m_isAtUnreadEntry, false) || checked(sd_journal_next(m_journal.get())) > 0) {
        JournalEntry found = entry();
        // Seeking by count, or in several files, may stop at an earlier entry.
        const auto since = m_selection.since;
        const bool isEarly = since && found.time.secondsSinceReferenceDate < since->secondsSinceReferenceDate;
        if (!isEarly && isSelected(found))
            return found;
    }
    return std::nullopt;
}

JournalEntry JournalReader::entry() const
{
    return {.time = time(),
            .level = field(JournalFields::level),
            .subsystem = field(JournalFields::subsystem),
            .category = field(JournalFields::category),
            .privacy = field(JournalFields::privacy),
            .text = field(JournalFields::message),
            .user = userNumber(field(JournalFields::user)),
            .program = field(JournalFields::program)};
}

JournalReader::Waiting JournalReader::waiting() const
{
    sd_journal* journal = m_journal.get();
    std::uint64_t deadline = 0; // Monotonic clock, microseconds; the maximum value means no deadline.
    checked(sd_journal_get_timeout(journal, &deadline));
    int timeout = -1;
    if (deadline != std::numeric_limits<std::uint64_t>::max()) {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        const std::uint64_t elapsed = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1000;
        timeout = deadline > elapsed ? static_cast<int>((deadline - elapsed) / 1000 + 1) : 0;
    }
    return {checked(sd_journal_get_fd(journal)), static_cast<short>(checked(sd_journal_get_events(journal))),
            timeout};
}

void JournalReader::consumeWakeUp()
{
    checked(sd_journal_process(m_journal.get()));
}

/// Returns the field's value; empty if the entry lacks the field.
std::string JournalReader::field(std::string_view name) const
{
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (sd_journal_get_data(m_journal.get(), std::string(name).c_str(), &bytes, &size) < 0)
        return {};
    // The data has the form "NAME=value".
    return std::string(static_cast<const char*>(bytes), size).substr(name.size() + 1);
}

Date JournalReader::time() const
{
    std::uint64_t microseconds = 0;
    checked(sd_journal_get_realtime_usec(m_journal.get(), &microseconds));
    return Date::fromSystemTime(
        std::chrono::system_clock::time_point(std::chrono::microseconds(microseconds)));
}

} // namespace Platform::Linux::Logging
