#include "Tests/Trials/RegisteredApplication.h"

#include "Tools/Backend/PushSender.h"

#include <boost/algorithm/hex.hpp>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

WebPushSubscription uploadedSubscription(TestBackend& backend)
{
    for (const auto end = std::chrono::steady_clock::now() + 20s; std::chrono::steady_clock::now() < end;) {
        const auto requests = backend.takeRequests();
        if (!requests.empty())
            return WebPushSubscription::parse(
                boost::algorithm::unhex(uploadedToken(requests.back()).value()));
        std::this_thread::sleep_for(100us);
    }
    throw Violation("no token was uploaded");
}

RegisteredApplication::RegisteredApplication(const std::filesystem::path& programs,
                                             const std::filesystem::path& faultLibrary)
    : m_device(programs, m_backend), m_faults(m_device, faultLibrary)
{
    m_device.replacePolicy(m_device.policy({"app0"}));
    m_process = m_device.start("auto");
    require(m_distributor.waitForRegistration(), "the application did not register");
    renewEndpoint();
    require(m_process->waitForLine("Device token uploaded"), "the token was not uploaded");
}

void RegisteredApplication::renewEndpoint()
{
    m_distributor.sendEndpoint(nextEndpoint());
    m_subscription = uploadedSubscription(m_backend);
}

void RegisteredApplication::restartDistributor()
{
    require(m_distributor.restart(nextEndpoint()), "the session bus cannot start the application");
    require(m_distributor.waitForRegistration(), "the application did not register again");
    m_subscription = uploadedSubscription(m_backend);
}

std::string RegisteredApplication::nextEndpoint()
{
    return fmt::format("https://push.example.org/{}", ++m_endpointCount);
}

void RegisteredApplication::deliver(const std::string& message)
{
    require(m_distributor.deliver(message) == Distributor::Answer::acknowledged,
            "a push was not acknowledged");
}

void RegisteredApplication::end()
{
    require(m_process->end() == 0, "the application did not exit with 0 after SIGTERM");
}
