#pragma once

#include <QQuickView>
#include <QRect>
#include <QString>
#include <QUrl>
#include <QVariantMap>

namespace Platform {
class UserDefaults;
}

namespace Platform::Desktop {

/// The window of the application, with its content filling it. Its place and size are remembered from one
/// launch to the next.
///
/// Threads: main.
class WindowGroup {
public:
    /// `store` keeps the place; it must outlive this object.
    WindowGroup(UserDefaults& store, const QString& title);
    ~WindowGroup();
    WindowGroup(const WindowGroup&) = delete;
    WindowGroup& operator=(const WindowGroup&) = delete;

    [[nodiscard]] QQuickView& window() { return m_window; }

    /// Loads the document with these initial properties and shows the window. Ends the process when the
    /// document makes no item: it is part of the program.
    void show(const QUrl& document, const QVariantMap& properties);
    /// Brings the window before the others, as far as the desktop lets it.
    void raise();

private:
    void restoreFrame();
    void saveFrame();

    UserDefaults& m_store;
    QQuickView m_window;
};

} // namespace Platform::Desktop
