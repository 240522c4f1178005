#include "Platform/Desktop/Shell/ShellAccessibility.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QGuiApplication>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Platform::Desktop {

namespace {

constexpr const char* limitedProperty = "quorvaneLimitedAccessibility";

/// Returns whether the document gives the item an accessible role or name.
bool isAccessible(const QQuickItem& item)
{
    const QObjectList& children = item.children();
    return std::any_of(children.begin(), children.end(), [](const QObject* child) {
        return child->inherits("QQuickAccessibleAttached") && !child->property("ignored").toBool();
    });
}

/// Collects the visible items below `parent` that take part in accessibility, in the order of the tree.
void collect(const QQuickItem& parent, QList<QAccessibleInterface*>& found)
{
    for (QQuickItem* child : parent.childItems()) {
        if (!child->isVisible())
            continue;
        if (isAccessible(*child))
            found += QAccessible::queryAccessibleInterface(child);
        else
            collect(*child, found);
    }
}

/// Returns the topmost dialog below `parent`; null if none is open.
const DialogFrame* openDialog(const QQuickItem& parent)
{
    auto children = parent.childItems();
    std::reverse(children.begin(), children.end());
    for (const QQuickItem* child : std::as_const(children)) {
        if (!child->isVisible() || !child->isEnabled())
            continue;
        const auto* dialog = qobject_cast<const DialogFrame*>(child);
        if (dialog == nullptr)
            dialog = openDialog(*child);
        if (dialog != nullptr)
            return dialog;
    }
    return nullptr;
}

/// An object whose children are the visible items below an item.
class AccessibleContainer : public QAccessibleObject {
public:
    using QAccessibleObject::QAccessibleObject;

    [[nodiscard]] int childCount() const override { return static_cast<int>(children().size()); }
    [[nodiscard]] QAccessibleInterface* child(int index) const override { return children().value(index); }
    [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override
    {
        return static_cast<int>(children().indexOf(const_cast<QAccessibleInterface*>(child)));
    }
    [[nodiscard]] QAccessibleInterface* childAt(int x, int y) const override
    {
        const auto all = children();
        const auto top =
            std::find_if(all.rbegin(), all.rend(), [&](auto* each) { return each->rect().contains(x, y); });
        if (top == all.rend())
            return nullptr;
        QAccessibleInterface* const inside = (*top)->childAt(x, y);
        return inside != nullptr ? inside : *top;
    }

protected:
    [[nodiscard]] virtual const QQuickItem& root() const = 0;

private:
    [[nodiscard]] QList<QAccessibleInterface*> children() const
    {
        QList<QAccessibleInterface*> found;
        collect(root(), found);
        return found;
    }
};

class AccessibleDialog final : public AccessibleContainer {
public:
    explicit AccessibleDialog(DialogFrame& dialog) : AccessibleContainer(&dialog), m_dialog(dialog) {}

    [[nodiscard]] QWindow* window() const override { return m_dialog.window(); }
    [[nodiscard]] QAccessibleInterface* parent() const override
    {
        return QAccessible::queryAccessibleInterface(m_dialog.window());
    }
    [[nodiscard]] QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Name)
            return m_dialog.title();
        return kind == QAccessible::Description ? m_dialog.note() : QString();
    }
    [[nodiscard]] QRect rect() const override
    {
        const QRect inWindow = m_dialog.mapRectToScene(m_dialog.boundingRect()).toRect();
        return m_dialog.window() != nullptr ? inWindow.translated(m_dialog.window()->position()) : inWindow;
    }
    [[nodiscard]] QAccessible::Role role() const override { return QAccessible::Dialog; }
    [[nodiscard]] QAccessible::State state() const override
    {
        QAccessible::State state;
        state.modal = true;
        state.active = true;
        return state;
    }

protected:
    [[nodiscard]] const QQuickItem& root() const override { return m_dialog; }

private:
    DialogFrame& m_dialog;
};

class AccessibleWindow final : public AccessibleContainer {
public:
    explicit AccessibleWindow(QQuickWindow& window) : AccessibleContainer(&window), m_window(window) {}

    [[nodiscard]] QWindow* window() const override { return &m_window; }
    [[nodiscard]] QAccessibleInterface* parent() const override
    {
        return QAccessible::queryAccessibleInterface(qApp);
    }
    [[nodiscard]] QAccessibleInterface* focusChild() const override
    {
        QAccessibleInterface* focused = QAccessible::queryAccessibleInterface(m_window.activeFocusItem());
        if (focused == nullptr || focused == this)
            return nullptr;
        QAccessibleInterface* const inside = focused->focusChild();
        return inside != nullptr ? inside : focused;
    }
    [[nodiscard]] QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? m_window.title() : QString();
    }
    [[nodiscard]] QRect rect() const override { return m_window.geometry(); }
    [[nodiscard]] QAccessible::Role role() const override { return QAccessible::Window; }
    [[nodiscard]] QAccessible::State state() const override
    {
        QAccessible::State state;
        state.active = m_window.isActive();
        state.invisible = !m_window.isVisible();
        return state;
    }

protected:
    [[nodiscard]] const QQuickItem& root() const override
    {
        const QQuickItem* const content = m_window.contentItem();
        const DialogFrame* const dialog = openDialog(*content);
        return dialog != nullptr ? *dialog->parentItem() : *content;
    }

private:
    QQuickWindow& m_window;
};

QAccessibleInterface* makeInterface(const QString& className, QObject* object)
{
    if (className == QLatin1String(DialogFrame::staticMetaObject.className()))
        return new AccessibleDialog(*static_cast<DialogFrame*>(object));
    if (className == u"QQuickWindow" && object->property(limitedProperty).toBool())
        return new AccessibleWindow(*static_cast<QQuickWindow*>(object));
    return nullptr;
}

} // namespace

void limitAccessibility(QQuickWindow& window)
{
    // Installing a factory again has no effect.
    QAccessible::installFactory(makeInterface);
    window.setProperty(limitedProperty, true);
    // Replaces an interface that exists already.
    if (QAccessibleInterface* const existing = QAccessible::queryAccessibleInterface(&window))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(existing));
}

} // namespace Platform::Desktop
