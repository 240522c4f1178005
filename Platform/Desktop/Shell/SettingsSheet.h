#pragma once

#include "Platform/Shell.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace Platform::Desktop {

/// This application's page in the system settings.
///
/// Threads: main. Ownership: references its port.
class SettingsSheet final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(SettingsSheetModel)
    QML_UNCREATABLE("made by the shell")
    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged FINAL)
    Q_PROPERTY(bool isAllowed READ isAllowed NOTIFY preferencesChanged FINAL)
    /// Empty without a notification server.
    Q_PROPERTY(QString notificationServer READ notificationServer NOTIFY preferencesChanged FINAL)
    Q_PROPERTY(QString pushSource READ pushSource NOTIFY preferencesChanged FINAL)

public:
    explicit SettingsSheet(NotificationPreferences& preferences) : m_preferences(preferences) {}

    void open();
    /// Reads the preferences again if the sheet is open.
    void refresh();
    Q_INVOKABLE void close();

    [[nodiscard]] bool isOpen() const { return m_isOpen; }
    [[nodiscard]] bool isAllowed() const;
    Q_INVOKABLE void setAllowed(bool isAllowed);
    [[nodiscard]] QString notificationServer() const;
    [[nodiscard]] QString pushSource() const;

Q_SIGNALS:
    void isOpenChanged();
    void preferencesChanged();

private:
    NotificationPreferences& m_preferences;
    bool m_isOpen = false;
};

} // namespace Platform::Desktop
