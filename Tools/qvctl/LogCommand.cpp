#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Logging/JournalReader.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/LiveSession.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <unistd.h>

namespace Qvctl {

namespace {

namespace json = boost::json;
using namespace Platform::Linux;
using namespace Platform::Linux::Logging;

/// The source of a line from another user or program; empty for a line of this user's app.
Styled sourceMark(const JournalEntry& entry)
{
    if (entry.user == ::geteuid() && entry.isFrom(journalIdentifier))
        return {};
    return styled("[user {}, {}] ", entry.user ? std::to_string(*entry.user) : "unknown",
                  entry.program.empty() ? "unknown program" : entry.program);
}

void printEntry(const Options& options, const JournalEntry& entry)
{
    if (!options.isJSON) {
        writeOutput(sourceMark(entry).text +
                    logLine(entry.time, entry.level, entry.subsystem, entry.category, entry.text));
        return;
    }
    printJSON({{"time", entry.time.utcText()},
               {"level", entry.level},
               {"subsystem", entry.subsystem},
               {"category", entry.category},
               {"privacy", entry.privacy},
               {"message", entry.text},
               {"user", entry.user ? json::value(*entry.user) : json::value()},
               {"program", entry.program.empty() ? json::value() : json::value(entry.program)}});
}

/// Returns whether there were any.
bool printEntries(const Options& options, JournalReader& reader)
{
    bool hasEntries = false;
    for (auto entry = reader.next(); entry && isOutputOpen(); entry = reader.next()) {
        printEntry(options, *entry);
        hasEntries = true;
    }
    flushOutput();
    return hasEntries;
}

} // namespace

ExitCode log(const Options& options, const LogOptions& selection)
{
    std::optional<LiveSession> session;
    if (selection.isFollowing)
        session.emplace();
    std::optional<JournalReader> reader;
    try {
        reader.emplace(JournalReader::Selection{
            .identifier = std::string(journalIdentifier),
            .user = selection.isIncludingOthers ? std::nullopt : std::optional(::geteuid()),
            .lowestLevel = selection.lowestLevel,
            .since = selection.since,
            .limit = selection.limit});
    } catch (const JournalUnavailable& error) {
        return fail(options, unavailable, error.what());
    }
    if (!printEntries(options, *reader) && !options.isJSON)
        printError("no matching lines in the journal{}",
                   selection.isIncludingOthers
                       ? ""
                       : " from this user's app; --all includes other users and programs");
    if (!session)
        return success;
    for (auto waiting = reader->waiting();
         session->waitFor(waiting.descriptor, waiting.events, waiting.timeoutMilliseconds);
         waiting = reader->waiting()) {
        reader->consumeWakeUp();
        printEntries(options, *reader);
    }
    return success;
}

} // namespace Qvctl
