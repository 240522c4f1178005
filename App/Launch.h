#pragma once

#include "Platform/Device.h"
#include "Platform/ExitCode.h"

#include <functional>
#include <memory>
#include <variant>

namespace App {

/// Makes the device for this event loop, or returns the exit code with which the process ends at once.
using MakeDevice = std::function<std::variant<std::unique_ptr<Platform::Device>, Platform::ExitCode>(
    const Platform::EventLoop&)>;

/// Runs the application on a device until it is told to end, and returns its exit code.
///
/// Threads: main. Errors: throws `Platform::Desktop::NoDisplay`, and whatever `makeDevice` throws.
Platform::ExitCode launch(int& argc, char** argv, const Platform::DeviceOptions& options,
                          const MakeDevice& makeDevice);

} // namespace App
