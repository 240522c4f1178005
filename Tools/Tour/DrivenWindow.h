#pragma once

#include "Platform/Linux/FileDescriptor.h"
#include "Tools/Tour/ChildProcess.h"

#include <boost/json/fwd.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// What a program needs in its environment for a `DrivenWindow` at that socket, in a folder that is there;
/// one program at a time. `programs` is the folder of the build.
ChildProcess::Environment windowDriverEnvironment(const std::filesystem::path& programs,
                                                  const std::filesystem::path& socketFile);

/// The window of a program started with `windowDriverEnvironment`, looked at and acted on as its user would,
/// by the names that its items have (`objectName`). Where several share one, the last on view is meant.
///
///     const auto application = device.startApplication();
///     DrivenWindow window(device.path("window.sock"));
///     window.tap("welcome.getStarted");
///     window.waitFor("dashboard");
///
/// What acts on an item waits first until it is on view, enabled and at rest: nothing that moves, scales or
/// fades it goes on. One that never rests is waited for in vain. Lengths are in points of the window.
///
/// Threads: one at a time. Errors: `std::runtime_error` says what was not there in time, and what is on
/// view. A program that does not answer at all cannot be asked any more through the same object.
class DrivenWindow {
public:
    using Timeout = std::chrono::milliseconds;
    static constexpr Timeout usualTimeout = std::chrono::seconds(20);

    struct Point {
        double x = 0;
        double y = 0;
    };
    /// As the item is drawn, with all that scales it.
    struct Geometry {
        double x = 0;
        double y = 0;
        double width = 0;
        double height = 0;
        [[nodiscard]] Point centre() const { return {x + width / 2, y + height / 2}; }
    };
    struct Accessible {
        /// "Button", "StaticText", as Qt names the roles.
        std::string role;
        std::string name;
    };
    struct Frames {
        std::int64_t count = 0;
        std::chrono::duration<double, std::milli> period{};
        /// Between two frames of the period; zero with fewer than two.
        std::chrono::duration<double, std::milli> longestGap{};
    };

    /// Waits until the program shows a window.
    explicit DrivenWindow(const std::filesystem::path& socketFile, Timeout timeout = usualTimeout);

    Geometry waitFor(std::string_view item, Timeout timeout = usualTimeout);
    void waitUntilGone(std::string_view item, Timeout timeout = usualTimeout);
    /// The item need not be on view.
    void waitForProperty(std::string_view item, std::string_view property, std::string_view value,
                         Timeout timeout = usualTimeout);

    /// With the mouse; two in a row are not a double tap.
    void tap(std::string_view item);
    void doubleTap(std::string_view item);
    void touchTap(std::string_view item);
    /// Holds the mouse down until `release()`.
    void press(std::string_view item);
    void release();
    /// Moves a finger at an even pace and lifts it without stopping: what scrolls goes on for a while. Then
    /// wait for something inside of it, since the list itself stays where it is.
    void swipe(Point from, Point to, std::chrono::milliseconds duration = std::chrono::milliseconds(200));
    /// As shortcuts are written: "Esc", "Tab", "Return", "Space", "Back", "Ctrl+Q".
    void typeKey(std::string_view key);

    /// As text, whether the item is on view or not; names are those of QML, such as "text" or
    /// "font.pixelSize", and x and y count from the item's parent.
    std::string property(std::string_view item, std::string_view property);
    /// What assistive technology is told of it. From the first call on the program takes it that there is
    /// some.
    Accessible accessible(std::string_view item);
    std::vector<std::string> namesOnView();
    /// The item that has the keyboard, or the nearest one around it that has a name; empty when there is
    /// none.
    std::string itemInFocus();

    void resize(int width, int height);
    /// Saves as PNG what the window shows after its next frame, in pixels of the device.
    void grab(const std::filesystem::path& file);

    /// A window shows frames when something changes, and when somebody here waits for an item, resizes or
    /// grabs: for the rate of an animation, do none of these before the count is over.
    void startCountingFrames();
    Frames stopCountingFrames();

private:
    /// Answers what the program answers, or throws what it refuses with.
    boost::json::object ask(const boost::json::object& request, Timeout timeout = usualTimeout);
    void act(std::string_view action, std::string_view item);
    std::string readLine(std::chrono::steady_clock::time_point deadline);

    Platform::Linux::FileDescriptor m_socket;
    std::string m_received;
};
