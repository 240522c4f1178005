#pragma once

#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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
    explicit TestBed(const TrialPrograms& programs);

    TrialDevice& device() { return m_device; }
    [[nodiscard]] const std::filesystem::path& programs() const { return m_programs; }
    Faults& faults() { return m_faults; }
    TestBackend& backend() { return *m_backend; }
    ChildProcess& application() { return *m_application; }

    /// Starts the application, which must not run, with a readable log. It shows the dashboard and registers.
    void start(const std::vector<std::string>& options = {"--push", "local"});
    /// Sends SIGTERM and requires exit code 0.
    void end();
    void kill();
    void endBackend() { m_backend.reset(); }

    void expectLine(std::string_view text, std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// Waits for the upload of a token that `isExpected` and returns the token, hexadecimal.
    std::string takeUpload(const std::function<bool(const std::string& token)>& isExpected = [](const auto&) {
        return true;
    });
    /// Changes the policy without waiting for the update.
    void change();
    Push push();

    /// Requires that the stored state is intact, no older than `before`, and contains `pushed` if that was
    /// acknowledged. Returns the stored state.
    StoredState requireNothingLost(const StoredState& before, const Push& pushed = {});
    /// Requires that changes and pushes are processed normally. Returns the stored state.
    StoredState requireHealthy(const StoredState& before);

    void requireWithLog(bool isTrue, const std::string& what) const;

private:
    const std::filesystem::path m_programs;
    const TemporaryFolder m_folder;
    std::unique_ptr<TestBackend> m_backend;
    TrialDevice m_device;
    Faults m_faults;
    std::unique_ptr<ChildProcess> m_application;
    std::string m_app = "first";
    int m_changeCount = 0;
    int m_pushCount = 0;
};
