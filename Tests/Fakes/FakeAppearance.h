#pragma once

#include "Platform/Appearance.h"

#include <utility>

/// A source that has no answer until `answerWith()`.
struct FakeAppearance final : Platform::AppearanceSource {
    [[nodiscard]] std::optional<Platform::Appearance> current() const override { return answer; }
    void observe(Observer newObserver) override { observer = std::move(newObserver); }
    void answerWith(const Platform::Appearance& appearance)
    {
        answer = appearance;
        observer(appearance);
    }

    std::optional<Platform::Appearance> answer;
    Observer observer;
};
