#include "Platform/Desktop/WindowGroup.h"

#include "Platform/FatalError.h"
#include "Platform/UserDefaults.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QQuickItem>
#include <QScreen>

#include <algorithm>
#include <array>
#include <tuple>

namespace Platform::Desktop {

namespace {

constexpr std::string_view frameKey = "WindowFrame";
constexpr QSize defaultSize(1024, 768);
constexpr QSize minimumSize(320, 480);

/// Returns `frame`, moved and made smaller if necessary so that the user can see and move the window on the
/// current screens; invalid if too little of it is on any screen.
QRect fittedToScreens(QRect frame)
{
    QRect room;
    QSize largest;
    for (const QScreen* screen : QGuiApplication::screens()) {
        const QRect available = screen->availableGeometry();
        const QSize visible = available.intersected(frame).size();
        if (visible.width() * visible.height() > largest.width() * largest.height()) {
            largest = visible;
            room = available;
        }
    }
    if (!frame.isValid() || largest.width() < minimumSize.width() / 2 ||
        largest.height() < minimumSize.height() / 2)
        return {};
    if (frame.width() > room.width()) {
        frame.setLeft(room.left());
        frame.setWidth(room.width());
    }
    // The window is moved by its top edge.
    frame.moveTop(std::max(frame.top(), room.top()));
    if (frame.height() > room.height()) {
        frame.setTop(room.top());
        frame.setHeight(room.height());
    }
    return frame;
}

/// Returns the stored frame; invalid if it is missing or malformed.
QRect storedFrame(const UserDefaults& store)
{
    const auto stored = store.object(frameKey);
    const auto* numbers = stored ? stored->array() : nullptr;
    if (numbers == nullptr || numbers->size() != 4)
        return {};
    std::array<int, 4> frame{};
    for (std::size_t index = 0; index < frame.size(); ++index) {
        const auto* number = (*numbers)[index].integer();
        if (number == nullptr || !std::in_range<std::int16_t>(*number))
            return {};
        frame[index] = static_cast<int>(*number);
    }
    return {frame[0], frame[1], frame[2], frame[3]};
}

} // namespace

WindowContent::WindowContent(const QString& module, const QString& type)
    : m_document(QStringLiteral("qrc:/qt/qml/%1/%2.qml").arg(QString(module).replace(u'.', u'/'), type)),
      m_fonts(std::async(std::launch::async, [] { std::ignore = QFontDatabase::families(); }))
{
    m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    // The engine's thread needs the main thread to load a module. Loading it here keeps the thread from
    // waiting while the program is busy.
    QQmlComponent(&m_engine).setData(QStringLiteral("import %1\nQtObject {}").arg(module).toUtf8(), QUrl());
    m_component.loadUrl(m_document, QQmlComponent::Asynchronous);
}

WindowGroup::WindowGroup(WindowContent& content, UserDefaults& store, const QString& title)
    : m_content(content), m_store(store), m_window(&content.engine(), nullptr)
{
    m_window.setTitle(title);
    m_window.setMinimumSize(minimumSize);
    m_window.setResizeMode(QQuickView::SizeRootObjectToView);
}

WindowGroup::~WindowGroup()
{
    if (m_window.rootObject() != nullptr)
        saveFrame();
    // Destroy the content before the objects it references.
    m_window.setSource({});
    // Qt would keep the content's images for the next window.
    m_window.releaseResources();
}

void WindowGroup::load(const QVariantMap& properties)
{
    restoreFrame();
    // With its final size from the start, the content is laid out only once.
    QVariantMap initialProperties = properties;
    initialProperties.insert("width", m_window.width());
    initialProperties.insert("height", m_window.height());
    m_window.setInitialProperties(initialProperties);
    m_window.setSource(m_content.document());
    if (m_window.rootObject() == nullptr)
        fatalError("the content of the window cannot be loaded");
}

void WindowGroup::raise()
{
    if (m_window.visibility() == QWindow::Minimized)
        m_window.showNormal();
    else if (!m_window.isVisible())
        m_window.show();
    m_window.raise();
    m_window.requestActivate();
}

void WindowGroup::restoreFrame()
{
    const QRect frame = fittedToScreens(storedFrame(m_store));
    if (frame.isValid()) {
        m_window.setGeometry(frame);
        return;
    }
    const QSize room = m_window.screen()->availableGeometry().size();
    m_window.resize(defaultSize.boundedTo(room));
}

void WindowGroup::saveFrame()
{
    if (m_window.visibility() != QWindow::Windowed && m_window.visibility() != QWindow::Hidden)
        return;
    const QRect frame = m_window.geometry();
    m_store.set(frameKey, PropertyList::Array{frame.x(), frame.y(), frame.width(), frame.height()});
}

} // namespace Platform::Desktop
