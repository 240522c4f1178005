#pragma once

#include "Core/Logger.h"
#include "Platform/NotificationCenter.h"
#include "Platform/PropertyList.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Shared code of the fuzzers. Each fuzzer is one source file that defines `examine`, which passes an input
/// to the code under test and aborts if a requirement is not met. No state is shared between inputs.
namespace Fuzzers {

/// Tests one input. Must not throw: an exception counts as a failure.
void examine(std::string_view input);

/// Prints `requirement` and aborts unless `isMet`.
void require(bool isMet, std::string_view requirement);

enum class Numbers {
    /// Compares types and bits.
    exactly,
    /// Compares values: a whole real equals the same integer, as in JSON.
    byValue
};

/// Returns whether the values are equal. Unlike `==`, treats NaN as equal to itself.
bool isSame(const Platform::PropertyList& left, const Platform::PropertyList& right, Numbers numbers);

/// Returns whether `text`, valid UTF-8, contains a control character, such as a line break or an escape.
bool holdsControlCharacter(std::string_view text);

/// Returns what `read` returns; absent if it throws an `Error`, which must have a reason of one line.
template <typename Error, typename Read>
auto accepted(Read read) -> std::optional<decltype(read())>
{
    try {
        return read();
    } catch (const Error& error) {
        require(*error.what() != '\0' && !holdsControlCharacter(error.what()),
                "a rejection has a reason of one line");
        return std::nullopt;
    }
}

/// Returns `input` with a canary inserted at an offset derived from the input.
std::string withCanary(std::string_view input);

/// Aborts if `line`, the text of a public log line, contains a part of the canary.
void requireNoCanary(std::string_view line);

/// What services run on: queues, stores in memory and a recorded log.
struct Device {
    ManualScheduler scheduler;
    Platform::NotificationCenter center;
    FakeUserDefaultsDomains domains{center, scheduler.mainQueue};
    RecordingUnifiedLog log;
    Core::Logger logger{std::make_unique<Core::OSLogSink>(log), "com.example.acme"};
};

} // namespace Fuzzers
