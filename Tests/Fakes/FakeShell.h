#pragma once

#include "Platform/Shell.h"

#include <utility>
#include <vector>

/// A permission prompt that the test answers by calling a completion in `requests`.
class FakePermissionPrompt final : public Platform::PermissionPrompt {
public:
    void requestPermission(std::function<void(bool)> completion) override
    {
        requests.push_back(std::move(completion));
    }

    std::vector<std::function<void(bool)>> requests;
};

/// Records notifications, or rejects them if `isWorking` is false. The test taps them with `Shown::tap`. If
/// `isSlow` is true, it completes with `complete`.
class FakeNotificationPresenter final : public Platform::NotificationPresenter {
public:
    void show(const Platform::UserNotification& notification, unsigned options,
              std::function<void(bool)> completion, std::function<void()> onResponse) override
    {
        if (isWorking)
            shown.push_back({notification, options, std::move(onResponse)});
        if (isSlow)
            complete = std::move(completion);
        else
            completion(isWorking);
    }
    void onAvailable(std::function<void()> handler) override { becomeAvailable = std::move(handler); }

    struct Shown {
        Platform::UserNotification notification;
        unsigned options;
        std::function<void()> tap;
    };
    bool isWorking = true;
    bool isSlow = false;
    std::function<void(bool)> complete;
    std::vector<Shown> shown;
    std::function<void()> becomeAvailable;
};
