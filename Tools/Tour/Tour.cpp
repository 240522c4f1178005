// Plays the application through on a device of its own, as device management, the organisation's backend and
// a second process meet it, and prints what happened and how long each step took. Ends non-zero when a step
// fails.

#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <fstream>

namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

class Tour {
public:
    explicit Tour(const std::filesystem::path& programs)
        : m_device(programs), m_backend({.folder = m_device.path("policy")})
    {
        m_device.setEnvironment("SSL_CERT_FILE", m_backend.certificateAuthority());
    }

    bool run()
    {
        fmt::print("{:<62}{:>10}  {}\n", "step", "time", "result");
        step("start without a configuration", [&] {
            start();
            return seen("Quorvane MDM App starting up") && seen("No managed configuration available") &&
                   seen("Configuration manager initialized");
        });
        step("file renamed into place -> version 1 (500 ms debounce)", [&] {
            m_device.replacePolicy(configuration("acme.corp", "com.acme.mail,com.acme.files"));
            return seen("Configuration updated - v1, apps: 2");
        });
        step("file rewritten in place, in two halves -> version 2", [&] {
            rewriteInHalves(configuration("http://acme.example/mdm", "com.acme.mail"));
            return seen("Configuration updated - v2, apps: 1");
        });
        step("twenty changes in a row -> one version, the last", [&] {
            for (int i = 1; i <= 20; ++i)
                m_device.replacePolicy(configuration("acme.corp", "com.acme.app" + std::to_string(i)));
            return seen("Configuration updated - v3, apps: 1");
        });
        step("file that makes no sense -> the last good one stays", [&] {
            m_device.replacePolicy("{\"base_domain\": \"acme");
            return seen("the last good one stays in force");
        });
        step("a second process reads the same snapshot", [&] { return isSnapshot(3, "com.acme.app20"); });
        step("told to end (SIGTERM)", [&] { return isEnded(); });
        step("next launch -> version 4", [&] {
            m_device.replacePolicy(configuration(m_backend.baseURL(), "com.acme.mail"));
            start();
            return seen("Configuration updated - v4, apps: 1") && isSnapshot(4, "com.acme.mail");
        });
        step("permission is there -> the device token reaches the backend", [&] {
            return seen("Remote notifications registered") && seen("Device token uploaded to backend") &&
                   isTokenUploaded();
        });
        step("the backend pushes to that token -> the history shows it", [&] {
            pushToDevice(m_token, R"({"aps": {"alert": {"title": "Welcome", "body": "All is well"}}})",
                         routes());
            return seen("Processed notification from center") &&
                   isNewestNotification("Welcome", "All is well");
        });
        step("a silent push -> the app alone hears of it", [&] {
            pushToDevice(m_token, R"({"aps": {"content-available": 1}})", routes());
            return seen("Processed remote notification");
        });
        step("told to end (SIGINT)", [&] {
            m_application->signal(SIGINT);
            return m_application->waitForExit() == 0;
        });
        if (!m_isGood) {
            fmt::print("\nWhat the application wrote:\n");
            for (const std::string& line : m_application->lines())
                fmt::print("  {}\n", line);
        }
        return m_isGood;
    }

private:
    static std::string configuration(std::string_view domain, std::string_view apps)
    {
        return fmt::format(R"({{"base_domain": "{}", "api_key": "tour-key", "device_id": "DEV-1",
            "OrganizationId": 4711, "AllowedAppsBundleIdsForSSOExtension": "{}"}})",
                           domain, apps);
    }

    template <typename Action>
    void step(std::string_view name, Action action)
    {
        if (!m_isGood)
            return;
        const auto begin = steady_clock::now();
        m_isGood = action();
        const auto taken = duration_cast<duration<double, std::milli>>(steady_clock::now() - begin);
        fmt::print("{:<62}{:>7.1f} ms  {}\n", name, taken.count(), m_isGood ? "ok" : "FAILED");
        std::fflush(stdout);
    }

    void start()
    {
        m_application = m_device.startApplication({"--log-stderr", "--push", "local", "--assume-dashboard"});
    }
    bool seen(std::string_view text) { return m_application->waitForLine(text); }
    bool isEnded()
    {
        m_application->signal(SIGTERM);
        return m_application->waitForExit() == 0;
    }

    void rewriteInHalves(const std::string& content)
    {
        std::ofstream file(m_device.policyFile(), std::ios::binary);
        file << content.substr(0, content.size() / 2) << std::flush;
        file << content.substr(content.size() / 2);
    }

    bool isSnapshot(std::int64_t version, std::string_view firstApp)
    {
        const auto console = m_device.startConsole({"snapshot", "--json"});
        if (console->waitForExit() != 0 || console->lines().size() != 1)
            return false;
        const auto snapshot = boost::json::parse(console->lines().front()).as_object();
        return snapshot.at("configVersion").as_int64() == version &&
               snapshot.at("allowedAppBundleIds").as_array().at(0).as_string() == firstApp &&
               snapshot.at("organizationId").as_string() == "4711";
    }

    bool isTokenUploaded()
    {
        for (const TestBackend::Request& request : m_backend.takeRequests()) {
            m_token = uploadedToken(request).value_or("");
            if (request.target == "/apis/mdm/backend/device-api/v1/device/apple/devices/DEV-1/token")
                return !m_token.empty();
        }
        return false;
    }
    [[nodiscard]] PushRoutes routes() const
    {
        return {m_device.pushSocket(), m_backend.certificateAuthority()};
    }
    bool isNewestNotification(std::string_view title, std::string_view body)
    {
        const auto console = m_device.startConsole({"notifications", "--limit", "1", "--json"});
        if (console->waitForExit() != 0 || console->lines().size() != 1)
            return false;
        const auto answer = boost::json::parse(console->lines().front()).as_object();
        const auto& newest = answer.at("notifications").as_array().at(0).as_object();
        return newest.at("title").as_string() == title && newest.at("body").as_string() == body;
    }

    ThrowawayDevice m_device;
    TestBackend m_backend;
    std::string m_token;
    std::unique_ptr<ChildProcess> m_application;
    bool m_isGood = true;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fmt::print(stderr, "usage: {} BUILD-FOLDER\n", argv[0]);
        return 64;
    }
    try {
        return Tour(argv[1]).run() ? 0 : 1;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}\n", argv[0], error.what());
        return 70;
    }
}
