#pragma once

#include <QQuickItem>
#include <QQuickWindow>

namespace Platform::Desktop {

/// A dialog of the shell, which assistive technology sees as modal. It is open while it is visible and
/// enabled, and the only accessible child of its parent.
class DialogFrame : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString title MEMBER m_title NOTIFY titleChanged FINAL)
    /// Explains the title.
    Q_PROPERTY(QString note MEMBER m_note NOTIFY noteChanged FINAL)

public:
    using QQuickItem::QQuickItem;

    [[nodiscard]] QString title() const { return m_title; }
    [[nodiscard]] QString note() const { return m_note; }

Q_SIGNALS:
    void titleChanged();
    void noteChanged();

private:
    QString m_title;
    QString m_note;
};

/// Limits what assistive technology finds in `window` to what the user can reach: nothing invisible and,
/// while a dialog is open, only that dialog. Call it before the window is shown.
///
/// Threads: main.
void limitAccessibility(QQuickWindow& window);

} // namespace Platform::Desktop
