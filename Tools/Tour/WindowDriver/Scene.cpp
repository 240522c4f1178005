#include "Tools/Tour/WindowDriver/Scene.h"

#include <QAccessible>
#include <QDebug>
#include <QGuiApplication>
#include <QMetaEnum>
#include <QQmlProperty>

#include <stdexcept>

namespace WindowDriver {

namespace {

template <typename Visit>
void visitItems(QQuickItem* item, const Visit& visit)
{
    visit(item);
    for (QQuickItem* child : item->childItems())
        visitItems(child, visit);
}

double opacityInWindow(const QQuickItem& item)
{
    double opacity = 1;
    for (const QQuickItem* at = &item; at != nullptr; at = at->parentItem())
        opacity *= at->opacity();
    return opacity;
}

} // namespace

QQuickWindow* visibleWindow()
{
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        auto* quickWindow = qobject_cast<QQuickWindow*>(window);
        if (quickWindow != nullptr && quickWindow->isVisible())
            return quickWindow;
    }
    return nullptr;
}

QRectF geometryInWindow(const QQuickItem& item)
{
    return item.mapRectToScene({0, 0, item.width(), item.height()});
}

QRectF visiblePart(const QQuickItem& item)
{
    if (item.window() == nullptr || !item.isVisible() || opacityInWindow(item) <= 0)
        return {};
    QRectF part = geometryInWindow(item) & QRectF(QPointF(), item.window()->size());
    for (const QQuickItem* around = item.parentItem(); around != nullptr; around = around->parentItem()) {
        if (around->clip())
            part &= geometryInWindow(*around);
    }
    return part;
}

QQuickItem* findItem(const QQuickWindow& window, const QString& name)
{
    QQuickItem* found = nullptr;
    visitItems(window.contentItem(), [&](QQuickItem* item) {
        if (item->objectName() == name &&
            (found == nullptr || !visiblePart(*item).isEmpty() || visiblePart(*found).isEmpty()))
            found = item;
    });
    return found;
}

QStringList namesOnView(const QQuickWindow& window)
{
    QStringList names;
    visitItems(window.contentItem(), [&](const QQuickItem* item) {
        if (!item->objectName().isEmpty() && !visiblePart(*item).isEmpty())
            names.append(item->objectName());
    });
    return names;
}

QString nameInFocus(const QQuickWindow& window)
{
    const QQuickItem* item = window.activeFocusItem();
    while (item != nullptr && item->objectName().isEmpty())
        item = item->parentItem();
    return item == nullptr ? QString() : item->objectName();
}

QString propertyText(QQuickItem& item, const QString& property)
{
    const QQmlProperty found(&item, property);
    if (!found.isValid() || !found.isProperty())
        throw std::runtime_error("there is no property '" + property.toStdString() + "'");
    const QVariant value = found.read();
    if (value.canConvert<QString>())
        return value.toString();
    if (value.canConvert<QObject*>()) {
        const auto* object = value.value<QObject*>();
        return object == nullptr ? QString() : object->objectName();
    }
    QString text;
    QDebug(&text).nospace() << value;
    return text;
}

AccessibleText accessibleText(QQuickItem& item)
{
    QAccessible::setActive(true);
    QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(&item);
    if (interface == nullptr)
        throw std::runtime_error("assistive technology is told nothing of it");
    const auto roles = QMetaEnum::fromType<QAccessible::Role>();
    return {roles.valueToKey(interface->role()), interface->text(QAccessible::Name)};
}

Pose::Pose(const QQuickItem& of)
    : item(&of),
      toWindow(of.itemTransform(nullptr, nullptr)),
      width(of.width()),
      height(of.height()),
      opacity(opacityInWindow(of))
{}

} // namespace WindowDriver
