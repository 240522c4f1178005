#pragma once

#include <QGuiApplication>

#include <memory>
#include <stdexcept>

namespace Platform::Desktop {

class NoDisplay : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The behavior if the environment names no display.
enum class Display {
    /// Throw `NoDisplay`, whose message names a fix.
    needed,
    /// Render off screen.
    optional,
};

/// Connects to the display of this session. Ends the process with exit code 69 if the display cannot be
/// opened. `argc` and `argv` must outlive the application.
std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv, Display display);

} // namespace Platform::Desktop
