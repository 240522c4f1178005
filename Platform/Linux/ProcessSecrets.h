#pragma once

#include "Platform/Linux/Logging/StandardErrorLog.h"

namespace Platform::Linux {

/// Keeps this process's keys out of files: prevents core dumps, except in the development profile, which
/// shows private data, and TLS session keys in `SSLKEYLOGFILE`.
///
/// Threads: call it before starting any. Child processes inherit the settings.
void protectProcessSecrets(Logging::PrivateData privateData);

} // namespace Platform::Linux
