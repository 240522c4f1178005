#pragma once

#include "Platform/Device.h"
#include "Platform/ExitCode.h"

#include <functional>
#include <memory>
#include <variant>

namespace App {

/// Creates the device for an event loop and with its strings, or returns the exit code if the process must
/// exit immediately.
using MakeDevice = std::function<std::variant<std::unique_ptr<Platform::Device>, Platform::ExitCode>(
    const Platform::EventLoop&, const Platform::DeviceStrings&)>;

/// Runs the application until it quits and returns the exit code.
///
/// Threads: main. Errors: throws `Platform::Desktop::NoDisplay` and the exceptions of `makeDevice`.
Platform::ExitCode launch(int& argc, char** argv, const Platform::DeviceOptions& options,
                          const MakeDevice& makeDevice);

} // namespace App
