#pragma once

#include "Platform/Appearance.h"

namespace Platform {

class UserDefaults;

/// Remembers the last appearance of another source, so that the first frame of the next launch already has
/// it. The source's answer may come after that frame.
///
/// Threads: main. Ownership: the source and the store must outlive this object.
class RememberedAppearance final : public AppearanceSource {
public:
    RememberedAppearance(AppearanceSource& source, UserDefaults& store) : m_source(source), m_store(store) {}

    /// The source's appearance or, until that has answered, the remembered one.
    [[nodiscard]] std::optional<Appearance> current() const override;
    void observe(Observer observer) override;
    /// Writes only if the appearance differs from the remembered one.
    void remember(const Appearance& appearance);

private:
    [[nodiscard]] std::optional<Appearance> remembered() const;

    AppearanceSource& m_source;
    UserDefaults& m_store;
};

} // namespace Platform
