import QtQuick
import Quorvane.Shell

/// The system's user interface, on top of the application's.
Item {
    id: root

    required property ShellModel shell

    anchors.fill: parent
    // Above Qt's layer for popups, at 1000001.
    z: 1000002
    LayoutMirroring.enabled: Application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    Binding {
        target: ShellStyle
        property: "shell"
        value: root.shell
    }

    SettingsSheet {
        sheet: root.shell.settings
        applicationName: root.shell.applicationName
        isCovered: root.shell.permission.isActive
    }

    PermissionPanel {
        panel: root.shell.permission
        applicationName: root.shell.applicationName
    }

    NotificationBanner {
        banner: root.shell.banner
        applicationName: root.shell.applicationName
    }
}
