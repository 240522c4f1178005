#pragma once

namespace Platform::Linux {

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed, so that no file or socket opened
/// later takes its number and is mistaken for standard input, output or error. Call it first in `main()`.
void openMissingStandardDescriptors();

} // namespace Platform::Linux
