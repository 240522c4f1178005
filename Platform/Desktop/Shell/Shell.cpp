#include "Platform/Desktop/Shell/Shell.h"

#include "Platform/Desktop/Shell/ShellAccessibility.h"
#include "Platform/FatalError.h"

#include <QQmlComponent>

#include <algorithm>
#include <utility>

namespace Platform::Desktop {

namespace {

bool isSeen(QWindow::Visibility visibility)
{
    return visibility != QWindow::Hidden && visibility != QWindow::Minimized;
}

} // namespace

Shell::Shell(const Ports& ports, const std::string& applicationName)
    : m_applicationName(QString::fromStdString(applicationName)),
      m_settings(ports.preferences),
      m_banner(ports.timers)
{
    connect(&m_permission, &PermissionPanel::isActiveChanged, this, &Shell::updateDialogs);
    connect(&m_settings, &SettingsSheet::isOpenChanged, this, &Shell::updateDialogs);
    connect(&m_banner, &NotificationBanner::isShownChanged, this, &Shell::load);
    connect(&m_banner, &NotificationBanner::becameFree, this, [this] { m_availabilityHandler(); });
}

Shell::~Shell()
{
    detach();
}

void Shell::attach(QQmlEngine& engine, QQuickWindow& window)
{
    detach();
    m_engine = &engine;
    m_window = &window;
    limitAccessibility(window);
    window.installEventFilter(this);
    connect(&window, &QObject::destroyed, this, &Shell::resetAfterWindow);
    // The window also emits this in its destructor.
    connect(&window, &QWindow::visibilityChanged, this, [this](QWindow::Visibility visibility) {
        if (isSeen(visibility))
            m_availabilityHandler();
    });
    m_permission.setOnScreen(true);
}

void Shell::detach()
{
    if (!m_window)
        return;
    m_window->removeEventFilter(this);
    m_window->disconnect(this);
    delete m_screen;
    m_window.clear();
    resetAfterWindow();
}

void Shell::resetAfterWindow()
{
    m_permission.setOnScreen(false);
    m_settings.close();
    m_banner.clear();
}

void Shell::updateDialogs()
{
    load();
    const bool isModal = m_permission.isActive() || m_settings.isOpen();
    if (std::exchange(m_isModal, isModal) != isModal && m_window)
        setContentEnabled(!isModal);
}

void Shell::setContentEnabled(bool isEnabled)
{
    if (!isEnabled)
        m_focusBefore = m_window->activeFocusItem();
    QQuickItem* content = nullptr;
    for (QQuickItem* item : m_window->contentItem()->childItems()) {
        if (item == m_screen)
            continue;
        item->setEnabled(isEnabled);
        if (content == nullptr && item->isFocusScope())
            content = item;
    }
    if (!isEnabled)
        return;
    const bool isStillThere = m_focusBefore && m_focusBefore->isVisible() && m_focusBefore->isEnabled();
    if (QQuickItem* target = isStillThere ? m_focusBefore.data() : content)
        target->forceActiveFocus(Qt::PopupFocusReason);
    m_focusBefore.clear();
}

void Shell::setAppearance(const Appearance& appearance)
{
    m_appearance = appearance;
    m_appearance.textScale = std::clamp(appearance.textScale, 1.0, 2.0);
    Q_EMIT appearanceChanged();
}

void Shell::openSettings()
{
    if (m_window)
        m_settings.open();
}

void Shell::requestPermission(std::function<void(bool isGranted)> completion)
{
    m_permission.requestPermission(std::move(completion));
}

void Shell::show(const UserNotification& notification, unsigned options,
                 std::function<void(bool isShown)> completion, std::function<void()> onResponse)
{
    const bool isToBeShown = isWindowSeen() && (options & PresentationOptions::banner) != 0;
    completion(isToBeShown && m_banner.show(notification, std::move(onResponse)));
}

bool Shell::isWindowSeen() const
{
    return m_window && isSeen(m_window->visibility());
}

bool Shell::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (type == QEvent::KeyPress)
        setKeyboardInUse(true);
    else if (type == QEvent::MouseButtonPress || type == QEvent::TouchBegin)
        setKeyboardInUse(false);
    return QObject::eventFilter(watched, event);
}

void Shell::setKeyboardInUse(bool isInUse)
{
    if (std::exchange(m_isKeyboardInUse, isInUse) != isInUse)
        Q_EMIT isKeyboardInUseChanged();
}

void Shell::load()
{
    if (m_screen || !m_window || !m_engine)
        return;
    if (!m_engine->importPathList().contains("qrc:/qt/qml"))
        m_engine->addImportPath("qrc:/qt/qml");
    QQmlComponent component(m_engine, QUrl("qrc:/qt/qml/Quorvane/Shell/Shell.qml"));
    if (component.isError())
        fatalError("the shell's QML cannot be loaded: " + component.errorString().toStdString());
    m_screen = qobject_cast<QQuickItem*>(component.createWithInitialProperties(
        {{"shell", QVariant::fromValue(this)}, {"parent", QVariant::fromValue(m_window->contentItem())}}));
    m_screen->QObject::setParent(m_window->contentItem());
}

} // namespace Platform::Desktop
