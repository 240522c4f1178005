// Plays everything that the user, device management, the backend and a second process do with the app, on new
// devices. Prints the time of each step and saves pictures. Exits with 1 if a step fails.

#include "Platform/Linux/StandardDescriptors.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ContactSheet.h"
#include "Tools/Tour/Gallery.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <QImage>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono;
namespace fs = std::filesystem;

void printTime(duration<double, std::milli> taken)
{
    fmt::print("{:>8.1f} ms  ok\n", taken.count());
}

/// One device and the steps on it. A failing step throws `std::runtime_error`.
class Tour {
public:
    Tour(const fs::path& programs, fs::path pictures, std::string appearance)
        : m_device(programs),
          m_backend({.folder = m_device.path("policy")}),
          m_pictures(std::move(pictures)),
          m_appearance(std::move(appearance))
    {
        m_device.setEnvironment("SSL_CERT_FILE", m_backend.certificateAuthority());
        m_device.setEnvironment("QUORVANE_APPEARANCE", m_appearance);
    }

    /// A series of steps.
    using Chapter = void (Tour::*)();

    /// Returns false if a step fails, after printing the reason.
    bool play(const std::vector<Chapter>& chapters)
    {
        try {
            for (const Chapter chapter : chapters)
                (this->*chapter)();
            return true;
        } catch (const std::runtime_error& error) {
            const auto lines = m_application ? m_application->lines() : std::vector<std::string>();
            fmt::print("{}\n\nOutput of the app:\n  {}\n", error.what(), fmt::join(lines, "\n  "));
            return false;
        }
    }

    void allowNotifications()
    {
        step("first launch -> welcome screen", [&] { startAt("welcome.getStarted"); });
        picture("welcome", "welcome.getStarted");
        step("file renamed into place -> version 1 (500 ms debounce)", [&] {
            m_device.replacePolicy(configuration("com.acme.mail,com.acme.files"));
            expectLine("Configuration updated - v1, apps: 2");
        });
        step("Get Started -> dashboard, and the system asks", [&] {
            window().tap("welcome.getStarted");
            expectLine("Get Started button tapped");
            window().waitUntilGone("welcome.getStarted");
            window().waitFor("shell.allow");
        });
        picture("prompt", "shell.allow");
        step("Allow -> the device token reaches the backend", [&] {
            window().tap("shell.allow");
            expectLine("Notification permission granted");
            expectLine("Device token uploaded to backend");
            m_token = tokenAtBackend();
            window().waitUntilGone("shell.allow");
        });
        picture("dashboard", "dashboard.card.bell.badge");
    }

    void receivePushes()
    {
        step("the backend pushes to that token -> banner and history", [&] {
            push(R"({"aps": {"alert": {"title": "Maintenance tonight",
                "body": "Your device restarts at 22:00."}}})");
            expectLine("Processed notification from center");
            window().waitFor("shell.banner");
            expectOutput({"notifications", "--limit", "1", "--reveal"}, "Maintenance tonight");
        });
        picture("banner", "shell.banner");
        step("a tap on it -> processed again", [&] {
            window().tap("shell.banner");
            expectLine("Processed notification from center");
            window().waitUntilGone("shell.banner");
        });
        step("a silent push -> only the app processes it", [&] {
            push(R"({"aps": {"content-available": 1}})");
            expectLine("Processed remote notification");
        });
    }

    void changePolicy()
    {
        step("twenty changes in a row -> one version, the last", [&] {
            for (int i = 1; i <= 20; ++i)
                m_device.replacePolicy(configuration("com.acme.app" + std::to_string(i)));
            expectLine("Configuration updated - v2, apps: 1");
        });
        step("invalid file -> the last good configuration stays", [&] {
            m_device.replacePolicy("{\"base_domain\": \"acme");
            expectLine("the last valid configuration stays in effect");
        });
        step("a second process reads the same snapshot", [&] {
            expectOutput({"snapshot", "--json"}, R"("configVersion":2,)");
            expectOutput({"snapshot", "--json"}, R"(["com.acme.app20"])");
        });
    }

    void launchAgain()
    {
        step("a second launch leaves the first alone", [&] {
            const auto second = m_device.startApplication();
            expect(second->waitForExit() == 0, "it ends with 0");
        });
        step("SIGTERM -> it ends", [&] { end(SIGTERM); });
        step("next launch -> the dashboard at once, version 3", [&] {
            m_device.replacePolicy(configuration("com.acme.mail"));
            startAt("dashboard.card.bell.badge");
            expectLine("Configuration updated - v3, apps: 1");
            expectLine("Device token uploaded to backend");
        });
        step("SIGINT -> it ends", [&] { end(SIGINT); });
    }

    void refuseNotifications()
    {
        step("first launch in dark mode -> welcome screen, still light",
             [&] { startAt("welcome.getStarted"); });
        picture("welcome", "welcome.getStarted");
        step("Don't Allow -> a strip shows that notifications are off", [&] {
            window().tap("welcome.getStarted");
            window().tap("shell.dontAllow");
            expectLine("Notification permission denied");
            window().waitUntilGone("shell.dontAllow");
            window().waitFor("dashboard.openSettings");
        });
        picture("dashboard-denied", "dashboard.openSettings");
        step("the dashboard is dark", [&] {
            expect(lightness("welcome") > 200, "a light welcome screen");
            expect(lightness("dashboard-denied") < 50, "a dark dashboard");
        });
        step("Open Settings -> notifications allowed, the strip stays", [&] {
            window().tap("dashboard.openSettings");
            window().tap("shell.settings.allowNotifications");
            expect(window().text("shell.settings.notificationServer.value") == "In this window" &&
                       window().text("shell.settings.pushSource.value") == "This device itself",
                   "the settings of a device without a session bus");
        });
        picture("settings", "shell.settings.done");
        step("Done", [&] {
            window().tap("shell.settings.done");
            window().waitUntilGone("shell.settings.done");
            window().waitFor("dashboard.openSettings");
        });
    }

    void launchAgainAllowed()
    {
        step("SIGTERM -> it ends", [&] { end(SIGTERM); });
        step("next launch -> no strip, and registered", [&] {
            startAt("dashboard.card.bell.badge");
            expectLine("Remote notifications registered");
            window().waitUntilGone("dashboard.openSettings");
        });
        picture("dashboard", "dashboard.card.bell.badge");
        step("SIGTERM -> it ends", [&] { end(SIGTERM); });
    }

    void visitDetails()
    {
        struct Card {
            std::string symbol;
            std::string line;
        };
        const Card cards[] = {
            {"person.badge.key", "SSO card tapped"},
            {"tv.and.mediabox", "Remote Casting card tapped"},
            {"bell.badge", "Notifications card tapped"},
        };
        for (const Card& card : cards) {
            step(card.line + " -> its screen", [&] {
                window().tap("dashboard.card." + card.symbol);
                expectLine(card.line);
                window().waitFor("detail.title");
            });
            picture("detail-" + card.symbol, "detail.title");
            step("and back", [&] {
                window().tap("navigation.back");
                window().waitUntilGone("detail.title");
            });
        }
    }

private:
    [[nodiscard]] std::string configuration(std::string_view apps) const
    {
        return fmt::format(R"({{"base_domain": "{}", "api_key": "tour-key", "device_id": "DEV-1",
            "OrganizationId": 4711, "AllowedAppsBundleIdsForSSOExtension": "{}"}})",
                           m_backend.baseURL(), apps);
    }

    template <typename Action>
    static void step(std::string_view name, Action action)
    {
        fmt::print("{:<62}", name);
        std::fflush(stdout);
        const auto begin = steady_clock::now();
        try {
            action();
        } catch (...) {
            fmt::print("            FAILED\n");
            throw;
        }
        printTime(steady_clock::now() - begin);
    }

    static void expect(bool isSo, std::string_view what)
    {
        if (!isSo)
            throw std::runtime_error(fmt::format("expected: {}", what));
    }
    void expectLine(std::string_view text)
    {
        expect(m_application->waitForLine(text), fmt::format("the application logs {}", text));
    }
    void expectOutput(const std::vector<std::string>& arguments, std::string_view text)
    {
        const auto console = m_device.startConsole(arguments);
        expect(console->waitForLine(text) && console->waitForExit() == 0,
               fmt::format("qvctl prints {}", text));
    }

    DrivenWindow& window() { return *m_window; }
    void startAt(std::string_view item)
    {
        m_application = m_device.startApplication({"--log-stderr", "--push", "local"});
        m_window.emplace(m_device.window());
        m_window->waitFor(item);
    }
    void end(int signal)
    {
        m_application->signal(signal);
        expect(m_application->waitForExit() == 0, "it ends with 0");
    }

    [[nodiscard]] fs::path pictureFile(std::string_view name, int width, int height) const
    {
        return m_pictures / fmt::format("{}-{}-{}x{}.png", name, m_appearance, width, height);
    }
    /// Saves a picture of the window in both sizes; `item` must be visible in each.
    void picture(std::string_view name, std::string_view item)
    {
        for (const auto& [width, height] : {std::pair(390, 844), std::pair(1024, 768)}) {
            window().resize(width, height);
            window().waitFor(item);
            window().grab(pictureFile(name, width, height));
        }
        window().resize(390, 844);
    }
    /// Of the background in a saved picture, from 0 to 255.
    [[nodiscard]] int lightness(std::string_view name) const
    {
        const QImage saved(QString::fromStdString(pictureFile(name, 390, 844).native()));
        return saved.pixelColor(0, 0).lightness();
    }

    std::string tokenAtBackend()
    {
        for (const TestBackend::Request& request : m_backend.takeRequests())
            if (request.target == "/apis/mdm/backend/device-api/v1/device/apple/devices/DEV-1/token")
                return uploadedToken(request).value_or("");
        throw std::runtime_error("no token was uploaded for DEV-1");
    }
    void push(std::string_view payload)
    {
        pushToDevice(m_token, payload, {m_device.pushSocket(), m_backend.certificateAuthority()});
    }

    ThrowawayDevice m_device;
    TestBackend m_backend;
    const fs::path m_pictures;
    const std::string m_appearance;
    std::string m_token;
    std::unique_ptr<ChildProcess> m_application;
    std::optional<DrivenWindow> m_window;
};

/// Takes the pictures of all screens in all looks, as many looks at a time as there are processors, and draws
/// the contact sheet. Returns false if a look fails, after printing the reason.
bool takeAllPictures(const fs::path& programs, const fs::path& pictures)
{
    const std::string english = "Device Management Dashboard";
    const std::string german = "Übersicht der Geräteverwaltung";
    const Look looks[] = {
        {"light", "light", "en", english},
        {"dark", "dark", "en", english},
        {"large-text", "light,text=2", "en", english},
        {"German", "light", "de", german},
        {"German-large-text", "light,text=2", "de", german},
        {"Arabic-dark", "dark", "ar", "لوحة معلومات إدارة الأجهزة"},
    };
    std::vector<ScreenPicture> taken[std::size(looks)];
    std::atomic<std::size_t> nextLook = 0;
    std::atomic<bool> isComplete = true;
    std::mutex output;
    const auto takeNext = [&] {
        for (std::size_t index = nextLook++; index < std::size(looks); index = nextLook++) {
            const auto begin = steady_clock::now();
            std::string failure;
            try {
                Look look = looks[index];
                look.appearance += ",reduced-motion";
                taken[index] = takePictures(look, programs, pictures / "screens");
            } catch (const std::runtime_error& error) {
                failure = error.what();
                isComplete = false;
            }
            const std::lock_guard lock(output);
            fmt::print("{:<62}", "all screens in all sizes: " + looks[index].name);
            if (failure.empty())
                printTime(steady_clock::now() - begin);
            else
                fmt::print("            FAILED\n{}\n", failure);
            std::fflush(stdout);
        }
    };
    std::vector<std::future<void>> workers;
    for (unsigned count = std::clamp(std::thread::hardware_concurrency(), 1U, 4U); count > 0; --count)
        workers.push_back(std::async(std::launch::async, takeNext));
    for (const auto& worker : workers)
        worker.wait();
    if (!isComplete)
        return false;
    ContactSheet sheet;
    for (std::size_t index = 0; index < std::size(looks); ++index)
        for (const ScreenPicture& picture : taken[index])
            sheet.add(picture.screen, looks[index].name, picture.file);
    sheet.save(pictures / "contact-sheet.png");
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    Platform::Linux::openMissingStandardDescriptors();
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (argc != 3) {
        fmt::print(stderr, "usage: {} BUILD-FOLDER PICTURES-FOLDER\n", argv[0]);
        return 64;
    }
    try {
        const fs::path programs = argv[1];
        const fs::path pictures = fs::absolute(argv[2]);
        fs::create_directories(pictures / "screens");
        fmt::print("{:<62}{:>11}  {}\n", "step", "time", "result");
        // One user allows notifications; another refuses them first and allows them in the settings.
        Tour allowing(programs, pictures, "light");
        Tour refusing(programs, pictures, "dark");
        if (!allowing.play({&Tour::allowNotifications, &Tour::receivePushes, &Tour::changePolicy,
                            &Tour::visitDetails, &Tour::launchAgain}) ||
            !refusing.play({&Tour::refuseNotifications, &Tour::visitDetails, &Tour::launchAgainAllowed}) ||
            !takeAllPictures(programs, pictures))
            return 1;
        fmt::print("\nPictures: {}\nAll at a glance: {}\n", pictures.native(),
                   (pictures / "contact-sheet.png").native());
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}\n", argv[0], error.what());
        return 70;
    }
}
