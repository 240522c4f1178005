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

/// Thrown if this device has no journal or this user may not read it. `what()` is a complete sentence.
class JournalUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One entry written by `JournalLog`. Any user can write such entries; only `user` and `program` come from
/// the journal itself and cannot be forged.
struct JournalEntry {
    Date time;
    std::string level;
    std::string subsystem;
    std::string category;
    /// "public" or "private".
    std::string privacy;
    std::string text;
    /// Absent if unknown to the journal.
    std::optional<uid_t> user = {};
    /// The path of the executable; empty if unknown to the journal.
    std::string program = {};

    /// Returns whether a program called `name` wrote the entry; true if the program is unknown.
    [[nodiscard]] bool isFrom(std::string_view name) const;
};

/// Reads entries written by `JournalLog` from the systemd journal, oldest first.
///
/// Threads: one. Errors: the constructor throws `JournalUnavailable`; all members throw `std::system_error`
/// if reading fails. Source: sd_journal_open(3), sd_journal_get_fd(3).
class JournalReader {
public:
    struct Selection {
        std::string identifier;
        /// Selects entries of this user, written by a program named like `identifier` or unknown.
        std::optional<uid_t> user = {};
        LogType lowestLevel = LogType::debug;
        std::optional<Date> since = {};
        /// Selects this many of the newest existing entries.
        std::optional<std::uint64_t> limit = {};
    };

    explicit JournalReader(Selection selection);
    ~JournalReader();
    JournalReader(const JournalReader&) = delete;
    JournalReader& operator=(const JournalReader&) = delete;

    /// Returns the next entry; absent at the end. Call again later for new entries.
    std::optional<JournalEntry> next();

    /// poll(2) arguments for waiting at the end. Afterwards, call `consumeWakeUp()`, then `next()`.
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
