#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <poll.h>

namespace Qvctl {

/// What a verb needs that goes on until it is interrupted: it waits for news and learns when to end, which is
/// at SIGINT and SIGTERM and when nobody reads standard output any more.
///
/// Threads: made on the main thread before there is any other, so that the signals come here.
class LiveSession {
public:
    LiveSession();

    /// Waits for `events`, of poll(2), on the descriptor, or until the time is over, -1 for never; false when
    /// the verb is to end.
    bool waitFor(int descriptor, short events = POLLIN, int timeoutMilliseconds = -1);

private:
    Platform::Storage::FileDescriptor m_signals;
};

} // namespace Qvctl
