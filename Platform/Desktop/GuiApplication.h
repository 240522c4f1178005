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
    /// Start without one; see `hasDisplay()`.
    optional,
};

/// Connects to the display of this session. Ends the process with exit code 69 if the display cannot be
/// opened. `argc` and `argv` must outlive the application.
std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv, Display display);

/// Whether windows of the application can be shown. QT_QPA_PLATFORM=offscreen counts as a display.
bool hasDisplay();

} // namespace Platform::Desktop
