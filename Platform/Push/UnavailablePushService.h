#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/Push/PushRegistrationError.h"
#include "Platform/PushService.h"

#include <string>
#include <utility>

namespace Platform::Push {

/// The push service of a device that cannot receive pushes. Every registration fails with `reason`, a full
/// sentence.
class UnavailablePushService final : public PushService {
public:
    UnavailablePushService(DispatchQueue& mainQueue, std::string reason)
        : m_mainQueue(mainQueue), m_reason(std::move(reason))
    {}

    void start(PushServiceListener& listener) override { m_listener = &listener; }
    void registerDevice() override
    {
        m_mainQueue.async([this] {
            m_listener->didFailToRegister(
                pushRegistrationError(PushRegistrationErrorCode::noDistributor, m_reason));
        });
    }

private:
    DispatchQueue& m_mainQueue;
    const std::string m_reason;
    PushServiceListener* m_listener = nullptr;
};

} // namespace Platform::Push
