#pragma once

#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRectF>
#include <QString>
#include <QStringList>
#include <QTransform>

namespace WindowDriver {

// What a user sees of the program, by the names of items (`objectName`). Rectangles are in points of the
// window. Threads: main.

/// The first window on the screen; null while there is none.
QQuickWindow* visibleWindow();

/// Where the item is, as it is drawn: moved, scaled and turned by those around it.
QRectF geometryInWindow(const QQuickItem& item);

/// The part of the item that is on view: empty when it is hidden, without a size, wholly transparent,
/// scrolled away or cut off. Being covered by others does not count.
QRectF visiblePart(const QQuickItem& item);

/// Among several of that name the last on view, or else the last; null when there is none.
QQuickItem* findItem(const QQuickWindow& window, const QString& name);

/// The names of all items on view, in the order in which the items are made.
QStringList namesOnView(const QQuickWindow& window);

/// The name of the item that has the keyboard, or of the nearest one around it with a name.
QString nameInFocus(const QQuickWindow& window);

/// `property` as QML writes it: "text", "font.pixelSize". Throws `std::runtime_error` when there is none.
QString propertyText(QQuickItem& item, const QString& property);

struct AccessibleText {
    /// "Button", "CheckBox", as `QAccessible::Role` has them.
    QString role;
    QString name;
};
/// What assistive technology is told; from the first call on the program takes it that there is some. Throws
/// `std::runtime_error` when the item is not for it.
AccessibleText accessibleText(QQuickItem& item);

/// All that an animation of an item, or of those around it, changes: where it is, how large and how opaque.
struct Pose {
    explicit Pose(const QQuickItem& of);
    bool operator==(const Pose& other) const = default;

    QPointer<const QQuickItem> item;
    QTransform toWindow;
    double width;
    double height;
    double opacity;
};

} // namespace WindowDriver
