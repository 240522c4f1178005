#pragma once

#include "Platform/Device.h"
#include "Platform/ExitCode.h"

#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace CLI {
class App;
}

namespace App {

/// Creates the command-line parser. It writes the parsed values to `options`, which must outlive it.
std::unique_ptr<CLI::App> makeCommandLine(Platform::DeviceOptions& options);

/// Parses the command line. Returns an exit code after printing help, the version or an error.
std::variant<Platform::DeviceOptions, Platform::ExitCode> parseCommandLine(int argc, char** argv);

/// Returns the arguments that start a process like this one without a window.
std::vector<std::string> backgroundArguments(int argc, const char* const* argv,
                                             const Platform::DeviceOptions& options);

} // namespace App
