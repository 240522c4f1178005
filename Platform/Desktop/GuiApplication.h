#pragma once

#include <QGuiApplication>

#include <memory>
#include <stdexcept>

namespace Platform::Desktop {

class NoDisplay : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What is to become of an application for which no display is named.
enum class Display {
    /// `NoDisplay` is thrown, with the mend.
    needed,
    /// Its windows are drawn, but nobody sees them.
    optional,
};

/// Connects to the display of this session; ends the process with 69 when the one that is named cannot be
/// opened. `argc` and `argv` must outlive the application.
std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv, Display display);

} // namespace Platform::Desktop
