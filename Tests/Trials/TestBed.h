#pragma once

#include "Platform/Linux/LocalPushService.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tools/Backend/PushSender.h"

#include <csignal>
#include <functional>
#include <memory>
#include <thread>

/// The application on a device with a backend and injected faults. Failed checks throw `Violation` with the
/// application's log.
class TestBed {
public:
    struct Push {
        std::string title;
        /// "ok" or the error.
        std::string answer;
        [[nodiscard]] bool isAcknowledged() const { return answer == "ok"; }
    };

    /// Starts the application with a policy for one app and waits until its token is uploaded.
    explicit TestBed(const TrialPrograms& programs)
        : m_programs(programs.folder),
          m_device(programs.folder, m_backend.value()),
          m_faults(m_device, programs.faultLibrary)
    {
        m_device.replacePolicy(m_device.policy({m_app}));
        start();
        expectLine("Device token uploaded");
    }

    TrialDevice& device() { return m_device; }
    [[nodiscard]] const std::filesystem::path& programs() const { return m_programs; }
    Faults& faults() { return m_faults; }
    TestBackend& backend() { return *m_backend; }
    ChildProcess& application() { return *m_application; }

    /// Starts the application, which must not run, with a readable log. It shows the dashboard and registers.
    void start(std::vector<std::string> options = {"--push", "local"})
    {
        options.emplace_back("--log-stderr");
        m_application = m_device.startApplication(options);
    }
    /// Sends SIGTERM and requires exit code 0.
    void end()
    {
        const auto exitCode = m_application->end();
        requireWithLog(exitCode == 0,
                       fmt::format("SIGTERM: exit code {} instead of 0", exitCode.value_or(-1)));
    }
    void kill()
    {
        m_application->signal(SIGKILL);
        m_application->waitForExit();
    }
    void endBackend() { m_backend.reset(); }

    void expectLine(std::string_view text, std::chrono::milliseconds timeout = std::chrono::seconds(20))
    {
        requireWithLog(m_application->waitForLine(text, timeout), fmt::format("not logged: {}", text));
    }
    /// Waits for the upload of a token, which `isExpected` accepts if given. Returns it, hexadecimal.
    std::string takeUpload(const std::function<bool(const std::string& token)>& isExpected = {})
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end) {
            for (const TestBackend::Request& request : m_backend->takeRequests()) {
                const auto token = uploadedToken(request);
                require(token.has_value(), "incomplete token upload: {}", request.body);
                if (!isExpected || isExpected(*token))
                    return *token;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        requireWithLog(false, "the token was not uploaded");
        return {};
    }
    /// Changes the policy without waiting for the update.
    void change()
    {
        m_app = fmt::format("change{}", ++m_changeCount);
        m_device.replacePolicy(m_device.policy({m_app}));
    }
    Push push()
    {
        const std::string title = fmt::format("push{}", ++m_pushCount);
        return {title, Platform::Linux::sendToLocalPushService(m_device.pushSocket(), recordedPush(title))};
    }

    /// Requires that the stored state is intact, no older than `before`, and contains `pushed` if that was
    /// acknowledged. Returns the stored state.
    StoredState requireNothingLost(const StoredState& before, const Push& pushed = {})
    {
        StoredState now = m_device.inspect();
        requireWithLog(now.configVersion >= before.configVersion,
                       fmt::format("version {} after {}", now.configVersion, before.configVersion));
        requireWithLog(!pushed.isAcknowledged() || now.hasPush(pushed.title),
                       pushed.title + " was acknowledged but is not in the history");
        constexpr std::size_t historyLimit = 100;
        if (now.history.size() == historyLimit)
            return now; // The oldest may have been dropped.
        for (const auto& entry : before.history)
            requireWithLog(now.hasPush(entry.title.value_or("")),
                           entry.title.value_or("") + " is no longer in the history");
        return now;
    }
    /// Requires that changes and pushes are processed normally. Returns the stored state.
    StoredState requireHealthy(const StoredState& before)
    {
        change();
        const Core::TextList expected{"com.example." + m_app};
        StoredState now;
        // On a busy machine, the first line can be that of an earlier change.
        do {
            expectLine("Configuration updated");
            now = m_device.inspect();
        } while (!now.snapshot || now.snapshot->config.allowedAppBundleIds != expected);
        const Push pushed = push();
        requireWithLog(pushed.isAcknowledged(), "a push was refused: " + pushed.answer);
        return requireNothingLost(before, pushed);
    }

    void requireWithLog(bool isTrue, const std::string& what) const
    {
        if (isTrue)
            return;
        std::string lines;
        if (m_application) {
            m_application->waitForExit(std::chrono::milliseconds(100)); // Reads the remaining output.
            lines = fmt::format("\n  {}", fmt::join(m_application->lines(), "\n  "));
        }
        throw Violation(what + lines);
    }

private:
    const std::filesystem::path m_programs;
    const TemporaryFolder m_folder;
    std::optional<TestBackend> m_backend{std::in_place, TestBackend::Options{.folder = m_folder.path()}};
    TrialDevice m_device;
    Faults m_faults;
    std::unique_ptr<ChildProcess> m_application;
    std::string m_app = "first";
    int m_changeCount = 0;
    int m_pushCount = 0;
};

/// Runs `work` on a new test bed, then ends the application. Violations start with `name`.
inline void onTestBed(const TrialPrograms& programs, const char* name,
                      const std::function<void(TestBed&)>& work)
{
    TestBed testBed(programs);
    try {
        work(testBed);
        testBed.end();
    } catch (const Violation& violation) {
        throw Violation(fmt::format("{}: {}", name, violation.what()));
    }
}
