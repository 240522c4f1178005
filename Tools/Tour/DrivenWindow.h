#pragma once

#include <boost/json/fwd.hpp>

#include <filesystem>
#include <string_view>

/// Acts on the window of a program as its user would. The program has loaded the plugin of WindowDriver.cpp,
/// which listens on the socket. Items go by their `objectName`.
///
///     const auto application = device.startApplication();
///     const DrivenWindow window = device.window();
///     window.tap("welcome.getStarted");
///     window.waitFor("dashboard");
///
/// Errors: `std::runtime_error` with the reason and the visible items when something does not happen within
/// 20 s, or when the program ends.
class DrivenWindow {
public:
    /// Blocks until the program listens on the socket.
    explicit DrivenWindow(std::filesystem::path socketFile);

    /// Blocks until the item is visible, enabled, and neither moves nor fades.
    void waitFor(std::string_view item) const;
    void waitUntilGone(std::string_view item) const;
    /// Clicks the visible part of the item, after `waitFor`. Two in a row are not a double click.
    void tap(std::string_view item) const;

    /// In points. What is inside of the window follows with its next frame.
    void resize(int width, int height) const;
    /// Saves what the window shows, as PNG in pixels of the device.
    void grab(const std::filesystem::path& file) const;

private:
    void perform(const boost::json::object& command) const;

    std::filesystem::path m_socketFile;
};
