#pragma once

#include <QGuiApplication>

#include <memory>
#include <stdexcept>

namespace Platform::Desktop {

class NoDisplay : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Whether the application needs a display.
enum class Display {
    /// Throws `NoDisplay`, whose message names a fix, if the environment names none. Ends the process with
    /// exit code 69 if the named one cannot be opened.
    needed,
    /// Starts without one if there is none or it cannot be opened; see `hasDisplay()`.
    optional,
};

/// Connects to the display of this session. `argc` and `argv` must outlive the application.
std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv, Display display);

/// Whether windows of the application can be shown. QT_QPA_PLATFORM=offscreen counts as a display.
bool hasDisplay();

} // namespace Platform::Desktop
