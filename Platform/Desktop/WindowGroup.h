#pragma once

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickView>
#include <QRect>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <future>

namespace Platform {
class UserDefaults;
}

namespace Platform::Desktop {

/// The document of a window's content, which a thread of the toolkit reads while the program prepares what it
/// is to show. Another thread lists the system's fonts meanwhile. The items are made when the window is
/// shown.
///
/// Threads: main.
class WindowContent {
public:
    /// Waits for the types of the module, not for the document.
    WindowContent(const QString& module, const QString& type);

    [[nodiscard]] const QUrl& document() const { return m_document; }
    [[nodiscard]] QQmlEngine& engine() { return m_engine; }

private:
    const QUrl m_document;
    /// Made before the list of fonts is begun, which would delay the start of the engine's thread.
    QQmlEngine m_engine;
    QQmlComponent m_component{&m_engine};
    /// The first text needs the list, which takes about as long as the documents.
    std::future<void> m_fonts;
};

/// The window of the application, with its content filling it. Its place and size are remembered from one
/// launch to the next.
///
/// Threads: main.
class WindowGroup {
public:
    /// `store` keeps the place; both must outlive this object.
    WindowGroup(WindowContent& content, UserDefaults& store, const QString& title);
    ~WindowGroup();
    WindowGroup(const WindowGroup&) = delete;
    WindowGroup& operator=(const WindowGroup&) = delete;

    [[nodiscard]] QQuickView& window() { return m_window; }

    /// Makes the content with these initial properties and shows the window. Ends the process when the
    /// document makes no item: it is part of the program.
    void show(const QVariantMap& properties);
    /// Brings the window before the others, as far as the desktop lets it.
    void raise();

private:
    void restoreFrame();
    void saveFrame();

    const WindowContent& m_content;
    UserDefaults& m_store;
    QQuickView m_window;
};

} // namespace Platform::Desktop
