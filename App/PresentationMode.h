#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace App {

/// By which a screen can leave the screen that it is on.
class PresentationMode : public QObject {
    Q_OBJECT
    QML_ELEMENT

public:
    using QObject::QObject;

    Q_INVOKABLE void dismiss() { Q_EMIT dismissed(); }

Q_SIGNALS:
    void dismissed();
};

} // namespace App
