#pragma once

#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/Distributor.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

/// Waits for an upload to `backend` and returns its subscription. Throws `Violation` after 20 s.
WebPushSubscription uploadedSubscription(TestBackend& backend);

/// The application, registered for pushes with a stand-in distributor. Its policy allows one app. Failed
/// checks throw `Violation`.
class RegisteredApplication {
public:
    /// `programs` is the build folder.
    explicit RegisteredApplication(const std::filesystem::path& programs,
                                   const std::filesystem::path& faultLibrary = {});

    [[nodiscard]] const TrialDevice& device() const { return m_device; }
    [[nodiscard]] Distributor& distributor() { return m_distributor; }
    [[nodiscard]] ChildProcess& process() { return *m_process; }
    [[nodiscard]] Faults& faults() { return m_faults; }

    /// Sends a new endpoint and waits for the upload of the new token.
    void renewEndpoint();
    /// Like `renewEndpoint()`, after a restart of the distributor. The bus must be able to start the
    /// application.
    void restartDistributor();
    /// Encrypts a payload for the current token.
    [[nodiscard]] std::string encrypted(std::string_view payload) const
    {
        return encryptWebPush(m_subscription, std::string(payload));
    }
    /// Delivers a message and requires an acknowledgment.
    void deliver(const std::string& message);
    /// Sends SIGTERM and requires exit code 0.
    void end();

private:
    [[nodiscard]] std::string nextEndpoint();

    const TemporaryFolder m_folder;
    TestBackend m_backend{{.folder = m_folder.path()}};
    TrialDevice m_device;
    Faults m_faults;
    Distributor m_distributor{m_device, Distributor::Behavior::responsive};
    std::unique_ptr<ChildProcess> m_process;
    WebPushSubscription m_subscription;
    int m_endpointCount = 0;
};
