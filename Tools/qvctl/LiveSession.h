#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <optional>
#include <poll.h>

namespace Qvctl {

/// Waits for events in a command that runs until SIGINT or SIGTERM, or until standard output has no reader.
///
/// Threads: construct on the main thread before starting any other thread, so that all of them block the
/// signals. Errors: throws `std::system_error`.
class LiveSession {
public:
    LiveSession();

    /// Waits for `events` as poll(2) does; a negative timeout never expires. False if the command must end.
    bool waitFor(int descriptor, short events = POLLIN, int timeoutMilliseconds = -1);

    enum class Event { ready, timeout, signal };
    /// Waits until `descriptor` can be read; without a timeout, as long as it takes. Unlike `waitFor`, does
    /// not end if standard output has no reader.
    [[nodiscard]] Event waitForEvent(int descriptor, std::optional<std::chrono::milliseconds> timeout);
    /// Ends the process with the signal that was received, so that the shell that started it sees the signal.
    [[noreturn]] void endBySignal();

private:
    Platform::Storage::FileDescriptor m_signals;
};

} // namespace Qvctl
