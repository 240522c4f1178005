#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>

namespace Platform {

/// How the user wants applications to look.
struct Appearance {
    bool isDark = false;
    bool isMotionReduced = false;
    /// What the sizes of texts are multiplied by, 1 to 2.
    double textScale = 1;

    bool operator==(const Appearance&) const = default;
};

/// The appearance that the system asks for.
///
/// Threads: main. Implementers owe: the observer is called on the main thread, never inside `observe()`.
class AppearanceSource {
public:
    using Observer = std::function<void(const Appearance& appearance)>;

    virtual ~AppearanceSource() = default;

    /// The defaults until the system has answered.
    [[nodiscard]] virtual Appearance current() const = 0;
    /// `observer` is called when the first answer comes, even one that equals the defaults, and on every
    /// change; not for an answer that is there already. It takes the place of the one before; an empty one
    /// ends the observation.
    virtual void observe(Observer observer) = 0;
};

/// One appearance from the start to the end: for development, for pictures, and where no system can be
/// setting.
class FixedAppearance final : public AppearanceSource {
public:
    explicit FixedAppearance(const Appearance& appearance = {}) : m_appearance(appearance) {}

    /// The one that QUORVANE_APPEARANCE asks for in place of the system's, "dark" or "light"; null for
    /// anything else.
    static std::unique_ptr<FixedAppearance> fromEnvironment()
    {
        const char* value = std::getenv("QUORVANE_APPEARANCE");
        const std::string_view setting = value != nullptr ? value : "";
        if (setting != "dark" && setting != "light")
            return nullptr;
        return std::make_unique<FixedAppearance>(Appearance{.isDark = setting == "dark"});
    }

    [[nodiscard]] Appearance current() const override { return m_appearance; }
    void observe(Observer) override {}

private:
    Appearance m_appearance;
};

} // namespace Platform
