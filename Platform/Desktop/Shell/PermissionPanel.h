#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <deque>
#include <functional>

namespace Platform::Desktop {

/// Asks the user for permission, one request at a time. The panel disappears between two requests, so that
/// the user notices the second.
///
/// Threads: main.
class PermissionPanel : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(PermissionPanelModel)
    QML_UNCREATABLE("made by the shell")
    Q_PROPERTY(bool isActive READ isActive NOTIFY isActiveChanged FINAL)

public:
    /// Works like `PermissionPrompt::requestPermission`.
    void requestPermission(std::function<void(bool isGranted)> completion);

    [[nodiscard]] bool isActive() const { return m_isActive; }
    /// Sets whether there is a window. Unanswered requests wait for the next window.
    void setOnScreen(bool isOnScreen);

    Q_INVOKABLE void answer(bool isGranted);
    /// Called when the panel has disappeared. Shows the next request asynchronously: without animation, this
    /// call is part of the very change that hides the panel.
    Q_INVOKABLE void leave();

Q_SIGNALS:
    void isActiveChanged();

private:
    void showNextRequest();
    void setActive(bool isActive);

    /// The first request is the one on screen.
    std::deque<std::function<void(bool)>> m_requests;
    bool m_isOnScreen = false;
    bool m_isActive = false;
    /// Whether any part of the panel is visible, animations included.
    bool m_isOnView = false;
};

} // namespace Platform::Desktop
