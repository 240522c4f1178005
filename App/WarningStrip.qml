pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// Warns that notifications are off and offers to open the settings. With large text, the button is below the text.
Panel {
    id: root

    readonly property bool isStacked: Theme.isTextLarge
    readonly property real contentHeight: isStacked ? grid.height : Math.max(text.height, label.height)

    signal settingsRequested

    implicitHeight: contentHeight + 2 * Theme.padding
    radius: Theme.radius.strip
    color: Theme.color.orangeTint
    // Screen readers announce it when it appears.
    Accessible.role: Accessible.Notification
    Accessible.name: text.text

    Symbol {
        id: symbol

        anchors.left: parent.left
        anchors.leftMargin: Theme.padding
        y: Math.round(root.isStacked ? Theme.padding + (text.lineHeightInPoints - height) / 2 : (parent.height - height) / 2)
        name: "bell.slash"
        color: Theme.color.textSecondary
    }

    Grid {
        id: grid

        readonly property real room: root.width - 2 * Theme.padding - symbol.width - Theme.spacing

        anchors.left: symbol.right
        anchors.leftMargin: Theme.spacing
        anchors.verticalCenter: parent.verticalCenter
        columns: root.isStacked ? 1 : 2
        spacing: Theme.spacing
        verticalItemAlignment: Grid.AlignVCenter

        TextLabel {
            id: text

            readonly property real lineHeightInPoints: lineCount > 0 ? height / lineCount : 0

            width: grid.room - (root.isStacked ? 0 : button.width + Theme.spacing)
            text: qsTr("Notifications are off")
            face: Theme.type.subheadline
            color: Theme.color.textSecondary
            Accessible.ignored: true
        }

        PressableItem {
            id: button

            objectName: "dashboard.openSettings"
            width: Math.min(label.implicitWidth, root.isStacked ? grid.room : TextFit.balancedWidth(accessibleName, label.font, Math.floor(root.width / 2)))
            // Extends into the padding to reach the minimum target size.
            height: Math.max(label.height, Theme.minimumTarget)
            cornerRadius: Theme.radius.strip
            accessibleName: qsTr("Open Settings")
            onClicked: root.settingsRequested()

            TextLabel {
                id: label

                anchors.verticalCenter: parent.verticalCenter
                width: parent.width
                text: button.accessibleName
                font: Theme.type.subheadline
                color: Theme.color.tint
                opacity: button.isPressed ? Theme.pressedOpacity : 1
                horizontalAlignment: root.isStacked ? Text.AlignLeft : Text.AlignRight
                Accessible.ignored: true
            }
        }
    }
}
