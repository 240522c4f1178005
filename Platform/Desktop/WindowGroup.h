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

/// The QML document of a window's content. To shorten the start, a thread of the QML engine loads the
/// document, and another one lists the system's fonts, while the program prepares its state. The items are
/// created when the window group is loaded.
///
/// Threads: main.
class WindowContent {
public:
    /// Blocks until the types of the module are loaded, but not the document.
    WindowContent(const QString& module, const QString& type);

    [[nodiscard]] const QUrl& document() const { return m_document; }
    [[nodiscard]] QQmlEngine& engine() { return m_engine; }

private:
    const QUrl m_document;
    /// Created before the font thread, which would delay the start of the engine's thread.
    QQmlEngine m_engine;
    QQmlComponent m_component{&m_engine};
    /// The first text item needs the list of fonts, which takes about as long as loading the documents.
    std::future<void> m_fonts;
};

/// The application window, filled by its content. Its position and size are restored at the next launch, as
/// far as the screens of that time have room.
///
/// Threads: main.
class WindowGroup {
public:
    /// `store` holds position and size. `content` and `store` must outlive this object.
    WindowGroup(WindowContent& content, UserDefaults& store, const QString& title);
    ~WindowGroup();
    WindowGroup(const WindowGroup&) = delete;
    WindowGroup& operator=(const WindowGroup&) = delete;

    [[nodiscard]] QQuickView& window() { return m_window; }

    /// Creates the content with these initial properties; the window stays hidden. Ends the process if the
    /// document, which is part of the program, is invalid.
    void load(const QVariantMap& properties);
    void show() { m_window.show(); }
    /// Brings the window to the front, if the desktop permits it. Shows it again if it was closed.
    void raise();

private:
    void restoreFrame();
    void saveFrame();

    const WindowContent& m_content;
    UserDefaults& m_store;
    QQuickView m_window;
};

} // namespace Platform::Desktop
