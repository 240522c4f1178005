#pragma once

#include "Platform/Appearance.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace App {

/// The user's appearance settings. Threads: main.
class AppearanceModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(bool isDark READ isDark NOTIFY changed FINAL)
    Q_PROPERTY(bool isMotionReduced READ isMotionReduced NOTIFY changed FINAL)
    Q_PROPERTY(bool isContrastHigh READ isContrastHigh NOTIFY changed FINAL)
    Q_PROPERTY(qreal textScale READ textScale NOTIFY changed FINAL)

public:
    void set(const Platform::Appearance& appearance)
    {
        m_appearance = appearance;
        Q_EMIT changed();
    }

    [[nodiscard]] bool isDark() const { return m_appearance.isDark; }
    [[nodiscard]] bool isMotionReduced() const { return m_appearance.isMotionReduced; }
    [[nodiscard]] bool isContrastHigh() const { return m_appearance.isContrastHigh; }
    [[nodiscard]] qreal textScale() const { return m_appearance.textScale; }

Q_SIGNALS:
    void changed();

private:
    Platform::Appearance m_appearance;
};

} // namespace App
