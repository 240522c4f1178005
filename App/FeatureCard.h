#pragma once

#include <QMetaType>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace App {

/// The content of a dashboard card, shown by FeatureCard.qml.
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
    QString description;
    /// Name of a symbol in Assets/symbols.
    QString icon;
    /// Whether the feature can be opened.
    bool isEnabled = true;
    /// A `MainDashboardView::CardType`.
    int type = 0;
};

} // namespace App
