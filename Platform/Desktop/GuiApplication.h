#pragma once

#include <QGuiApplication>

#include <memory>
#include <stdexcept>

namespace Platform::Desktop {

class NoDisplay : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Connects to the display of this session. Throws `NoDisplay`, with the mend, when none is named; ends the
/// process with 69 when the one that is named cannot be opened. `argc` and `argv` must outlive the
/// application.
std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv);

} // namespace Platform::Desktop
