#pragma once

#include <QMetaType>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace App {

/// What one card of the dashboard says. The card itself is FeatureCard.qml.
class FeatureCard {
    Q_GADGET
    QML_VALUE_TYPE(featureCard)
    Q_PROPERTY(QString title MEMBER title CONSTANT FINAL)
    Q_PROPERTY(QString description MEMBER description CONSTANT FINAL)
    Q_PROPERTY(QString icon MEMBER icon CONSTANT FINAL)
    Q_PROPERTY(bool isEnabled MEMBER isEnabled CONSTANT FINAL)
    Q_PROPERTY(int type MEMBER type CONSTANT FINAL)

public:
    QString title;
    /// One line of explanation.
    QString description;
    /// The name of a symbol.
    QString icon;
    /// Whether the feature can be opened.
    bool isEnabled = true;
    /// A `MainDashboardView::CardType`.
    int type = 0;
};

} // namespace App
