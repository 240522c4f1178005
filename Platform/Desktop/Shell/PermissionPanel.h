#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <deque>
#include <functional>

namespace Platform::Desktop {

/// Asks the user for permission, one question after the other. The next one waits until the panel has left
/// the view, so that the user sees that it is another one.
///
/// Threads: main.
class PermissionPanel : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(PermissionPanelModel)
    QML_UNCREATABLE("made by the shell")
    Q_PROPERTY(bool isActive READ isActive NOTIFY isActiveChanged FINAL)

public:
    /// As for a `PermissionPrompt`.
    void requestPermission(std::function<void(bool isGranted)> completion);

    [[nodiscard]] bool isActive() const { return m_isActive; }
    /// Whether there is a window to ask in. Questions without an answer wait for the next one.
    void setOnScreen(bool isOnScreen);

    Q_INVOKABLE void answer(bool isGranted);
    /// Nothing is seen of the panel any more. What follows comes after whatever runs now: without motion,
    /// that is the very change which made it go.
    Q_INVOKABLE void leave();

Q_SIGNALS:
    void isActiveChanged();

private:
    void showNextRequest();
    void setActive(bool isActive);

    /// The first is the one that is asked.
    std::deque<std::function<void(bool)>> m_questions;
    bool m_isOnScreen = false;
    bool m_isActive = false;
    /// From the moment a question comes on view until the panel has left it.
    bool m_isOnView = false;
};

} // namespace Platform::Desktop
