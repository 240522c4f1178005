#pragma once

#include "Platform/Application.h"

#include <string>
#include <vector>

/// An application without a system around it: remembers what it was asked for.
class FakeApplication final : public Platform::Application {
public:
    void setDelegate(std::weak_ptr<Platform::ApplicationDelegate> /*delegate*/) override {}
    void registerForRemoteNotifications() override { ++registrationCount; }
    void open(std::string_view url) override { openedAddresses.emplace_back(url); }

    int registrationCount = 0;
    std::vector<std::string> openedAddresses;
};
