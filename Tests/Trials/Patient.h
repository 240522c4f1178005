#pragma once

#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

/// The application on a device, asked to take changes and pushes while something is wrong and after it. What
/// it owes throws `Violation`, with what it wrote.
class Patient {
public:
    /// What became of a push.
    struct Push {
        std::string title;
        /// "ok", or why it was refused.
        std::string answer;
        [[nodiscard]] bool isAcknowledged() const { return answer == "ok"; }
    };

    /// Starts it with a policy of one app, and waits until its token has reached the backend.
    explicit Patient(const TrialPrograms& programs);

    TrialDevice& device() { return m_device; }
    Faults& faults() { return m_faults; }
    TestBackend& backend() { return *m_backend; }
    ChildProcess& application() { return *m_application; }

    /// Starts it anew; the one before must have ended.
    void start(const std::string& push = "local") { m_application = m_device.start(push); }
    /// As the session bus starts it for a push: without a window.
    void startWithoutWindow()
    {
        m_application = m_device.startApplication({"--log-stderr", "--push", "auto", "--dbus-activated"});
    }
    /// SIGTERM; demands that it ends with 0.
    void end();
    void endBackend() { m_backend.reset(); }

    void expectLine(std::string_view text, std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// Changes the policy, and does not wait.
    void change();
    Push push();

    /// Demands that what is stored is whole, no older than `before`, and holds `pushed` if it was
    /// acknowledged. Answers what is stored.
    StoredState demandNothingLost(const StoredState& before, const Push& pushed = {});
    /// Demands that changes and pushes are taken as ever.
    StoredState demandHealth(const StoredState& before);

    void demandHere(bool isSo, const std::string& what) const;

private:
    const TemporaryFolder m_folder;
    std::unique_ptr<TestBackend> m_backend;
    TrialDevice m_device;
    Faults m_faults;
    std::unique_ptr<ChildProcess> m_application;
    std::string m_app = "first";
    int m_changeCount = 0;
    int m_pushCount = 0;
};
