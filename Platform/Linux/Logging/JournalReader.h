#pragma once

#include "Platform/Date.h"
#include "Platform/UnifiedLog.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>

struct sd_journal;

namespace Platform::Linux::Logging {

/// There is no journal on this device, or this user may not read it. `what()` is a whole sentence.
class JournalUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One entry as `JournalLog` wrote it. Any user can write an entry like that; only its writer is known to the
/// journal itself.
struct JournalEntry {
    Date time;
    std::string level;
    std::string subsystem;
    std::string category;
    /// "public" or "private".
    std::string privacy;
    std::string text;
    /// Absent when the journal does not know it.
    std::optional<uid_t> user = {};
    /// The path of the executable; empty when the journal does not know it.
    std::string program = {};

    /// Whether a program of this name wrote it, as far as the journal knows.
    [[nodiscard]] bool isFrom(std::string_view name) const;
};

/// Reads back from the systemd journal what `JournalLog` wrote there, oldest first.
///
/// Threads: one. Errors: the constructor throws `JournalUnavailable`; everything throws `std::system_error`
/// when the journal cannot be read any further. Source: sd_journal_open(3), sd_journal_get_fd(3).
class JournalReader {
public:
    struct Selection {
        std::string identifier;
        /// Only entries of this user, and only of a program with the name of the identifier, where the
        /// journal knows the program.
        std::optional<uid_t> user = {};
        /// Only of that one, as long as it runs.
        std::optional<pid_t> process = {};
        LogType lowestLevel = LogType::debug;
        std::optional<Date> since = {};
        /// Of the entries that are there, only so many of the newest.
        std::optional<std::uint64_t> limit = {};
    };

    explicit JournalReader(Selection selection);
    ~JournalReader();
    JournalReader(const JournalReader&) = delete;
    JournalReader& operator=(const JournalReader&) = delete;

    /// The entry after the one before; absent at the end, which may move.
    std::optional<JournalEntry> next();

    /// Of poll(2): what to wait for at the end, and for how long at most, before `consumeWakeUp()` and
    /// another `next()`.
    struct Waiting {
        int descriptor;
        short events;
        int timeoutMilliseconds;
    };
    [[nodiscard]] Waiting waiting() const;
    void consumeWakeUp();

private:
    struct Closer {
        void operator()(sd_journal* journal) const;
    };

    void match(std::string_view field, std::string_view value);
    void goToStart();
    bool goBack(std::uint64_t count);
    [[nodiscard]] JournalEntry entry() const;
    [[nodiscard]] bool isSelected(const JournalEntry& entry) const;
    [[nodiscard]] std::string field(std::string_view name) const;
    [[nodiscard]] Date time() const;

    std::unique_ptr<sd_journal, Closer> m_journal;
    const Selection m_selection;
    bool m_isAtUnreadEntry = false;
};

} // namespace Platform::Linux::Logging
