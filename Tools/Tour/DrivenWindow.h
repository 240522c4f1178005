#pragma once

#include <boost/json/fwd.hpp>

#include <filesystem>
#include <string>
#include <string_view>

/// Operates the window of a program like a user. The program has loaded the plugin in WindowDriver.cpp, which
/// listens on the socket. Items are identified by `objectName`.
///
///     const auto application = device.startApplication();
///     const DrivenWindow window = device.window();
///     window.tap("welcome.getStarted");
///     window.waitFor("dashboard");
///
/// Errors: `std::runtime_error` with the reason and the visible items after 20 s, or if the program ends.
class DrivenWindow {
public:
    /// Blocks until the program listens on the socket.
    explicit DrivenWindow(std::filesystem::path socketFile);

    /// Blocks until the item is visible, enabled, and neither moves nor fades.
    void waitFor(std::string_view item) const;
    void waitUntilGone(std::string_view item) const;
    /// Waits for the item and clicks its visible part. Two taps are not a double click.
    void tap(std::string_view item) const;

    /// Waits for the item and returns the value of its property `text`.
    [[nodiscard]] std::string text(std::string_view item) const;

    /// In points. The content follows with the next frame.
    void resize(int width, int height) const;
    /// As the user closes it.
    void close() const;
    /// Saves a picture of the window as PNG, in device pixels.
    void grab(const std::filesystem::path& file) const;

private:
    /// Returns the reply.
    boost::json::object perform(const boost::json::object& command) const;

    std::filesystem::path m_socketFile;
};
