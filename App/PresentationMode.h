#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace App {

/// Lets a presented screen dismiss itself.
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
