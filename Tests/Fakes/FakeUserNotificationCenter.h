#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/UserNotificationCenter.h"

#include <utility>

/// A notification center whose user answers a request with `willGrant`. If `error` is set, requests complete
/// with it as well. Calls completions on a queue.
class FakeUserNotificationCenter final : public Platform::UserNotificationCenter {
public:
    explicit FakeUserNotificationCenter(Platform::DispatchQueue& queue) : m_queue(queue) {}

    void getNotificationSettings(std::function<void(Platform::NotificationSettings)> completion) override
    {
        m_queue.async([completion = std::move(completion), status = status] { completion({status}); });
    }
    void requestAuthorization(unsigned options, AuthorizationCompletion completion) override
    {
        using Platform::AuthorizationStatus;
        requestedOptions = options;
        if (status == AuthorizationStatus::notDetermined)
            status = willGrant ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
        const bool isGranted = status != AuthorizationStatus::denied;
        m_queue.async(
            [completion = std::move(completion), isGranted, error = error] { completion(isGranted, error); });
    }
    void setDelegate(std::weak_ptr<Platform::UserNotificationCenterDelegate> newDelegate) override
    {
        delegate = std::move(newDelegate);
    }

    Platform::AuthorizationStatus status = Platform::AuthorizationStatus::notDetermined;
    bool willGrant = true;
    std::optional<Platform::Error> error;
    unsigned requestedOptions = 0;
    std::weak_ptr<Platform::UserNotificationCenterDelegate> delegate;

private:
    Platform::DispatchQueue& m_queue;
};
