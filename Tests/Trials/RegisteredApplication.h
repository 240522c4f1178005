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
    explicit RegisteredApplication(const std::filesystem::path& programs);

    [[nodiscard]] const TrialDevice& device() const { return m_device; }
    [[nodiscard]] Distributor& distributor() { return m_distributor; }
    [[nodiscard]] ChildProcess& process() { return *m_process; }

    /// Sends a new endpoint and waits for the upload of the new token.
    void renewEndpoint();
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
    const TemporaryFolder m_folder;
    TestBackend m_backend{{.folder = m_folder.path()}};
    TrialDevice m_device;
    Distributor m_distributor{m_device, Distributor::Behavior::responsive};
    std::unique_ptr<ChildProcess> m_process;
    WebPushSubscription m_subscription;
    int m_endpointCount = 0;
};
