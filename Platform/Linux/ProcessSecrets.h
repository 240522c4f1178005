#pragma once

#include "Platform/Linux/Logging/StandardErrorLog.h"

namespace Platform::Linux {

/// Keeps the keys in the memory of this process out of files: it leaves no core dump unless `privateData` is
/// shown, which is the development profile, and its TLS library writes no session keys to `SSLKEYLOGFILE`.
///
/// Threads: before the first one is started. Child processes inherit all of it.
void protectProcessSecrets(Logging::PrivateData privateData);

} // namespace Platform::Linux
