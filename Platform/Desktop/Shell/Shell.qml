import QtQuick
import Quorvane.Shell

/// Everything that the system draws, over everything that the application does.
Item {
    id: root

    required property ShellModel shell

    anchors.fill: parent
    // Popups of the toolkit lie in a layer at 1000001.
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
