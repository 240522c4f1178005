#pragma once

#include <functional>
#include <memory>
#include <optional>

namespace Platform {

/// The user's preferences for how applications look.
struct Appearance {
    bool isDark = false;
    bool isMotionReduced = false;
    /// The factor for font sizes, from 1 to 2.
    double textScale = 1;
    bool isContrastHigh = false;

    bool operator==(const Appearance&) const = default;
};

/// Reports the appearance that is set on the system.
///
/// Threads: main. Implementations must call the observer on the main thread, and never inside `observe()`.
class AppearanceSource {
public:
    using Observer = std::function<void(const Appearance& appearance)>;

    virtual ~AppearanceSource() = default;

    /// Returns the current appearance; absent until the system has reported one.
    [[nodiscard]] virtual std::optional<Appearance> current() const = 0;
    /// Replaces the observer; an empty one ends the observation. The observer is called for the system's
    /// first report, even if it equals the defaults, and on every change after that. It is not called for a
    /// report that arrived earlier.
    virtual void observe(Observer observer) = 0;
};

/// An appearance that never changes: for development, for screenshots, and where the system reports none.
class FixedAppearance final : public AppearanceSource {
public:
    explicit FixedAppearance(const Appearance& appearance = {}) : m_appearance(appearance) {}

    /// Returns the appearance named by the environment variable QUORVANE_APPEARANCE: a comma-separated list
    /// of "dark" or "light", "reduced-motion", "high-contrast", and "text=" with a text scale of 1 to 2. Null
    /// if the variable is not set or has any other word.
    static std::unique_ptr<FixedAppearance> fromEnvironment();

    [[nodiscard]] std::optional<Appearance> current() const override { return m_appearance; }
    void observe(Observer) override {}

private:
    Appearance m_appearance;
};

} // namespace Platform
