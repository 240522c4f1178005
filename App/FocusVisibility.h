#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace App {

/// Whether to draw the focus ring: true while the user works with the keyboard, until the next touch or
/// click.
///
/// Threads: main.
class FocusVisibility : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool isShown READ isShown NOTIFY isShownChanged FINAL)

public:
    /// Watches the input of all windows. An item's handlers would miss what the items above it accept.
    explicit FocusVisibility(QObject* parent = nullptr);

    [[nodiscard]] bool isShown() const { return m_isShown; }
    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    void isShownChanged();

private:
    void setShown(bool isShown);

    bool m_isShown = false;
};

} // namespace App
