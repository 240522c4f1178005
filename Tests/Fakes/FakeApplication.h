#pragma once

#include "Platform/Application.h"

#include <string>
#include <vector>

/// An application that records the calls it gets.
class FakeApplication final : public Platform::Application {
public:
    void setDelegate(std::weak_ptr<Platform::ApplicationDelegate> /*delegate*/) override {}
    void registerForRemoteNotifications() override { ++registrationCount; }
    void open(std::string_view url) override { openedURLs.emplace_back(url); }

    int registrationCount = 0;
    std::vector<std::string> openedURLs;
};
