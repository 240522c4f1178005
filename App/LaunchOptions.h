#pragma once

#include "Platform/Device.h"
#include "Platform/ExitCode.h"

#include <memory>
#include <variant>

namespace CLI {
class App;
}

namespace App {

/// The command line, for those who parse or describe it. What is parsed is written to `options`, which must
/// live as long.
std::unique_ptr<CLI::App> makeCommandLine(Platform::DeviceOptions& options);

/// The options, or the exit code with which the process ends at once: everything has been said then.
std::variant<Platform::DeviceOptions, Platform::ExitCode> parseCommandLine(int argc, char** argv);

} // namespace App
