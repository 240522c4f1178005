#pragma once

namespace Platform::Linux {

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed. Otherwise, a file or socket opened
/// later could become standard input, output or error. Call it first in `main()`.
void openMissingStandardDescriptors();

} // namespace Platform::Linux
