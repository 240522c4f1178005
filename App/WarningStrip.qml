pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// Warns that notifications are off and offers to open the settings.
Panel {
    id: root

    signal settingsRequested

    implicitHeight: Math.max(text.height, label.height) + 2 * Theme.padding
    radius: Theme.radius.strip
    color: Theme.color.orangeTint

    Symbol {
        id: symbol

        anchors.left: parent.left
        anchors.leftMargin: Theme.padding
        anchors.verticalCenter: parent.verticalCenter
        name: "bell.slash"
        color: Theme.color.textSecondary
    }

    TextLabel {
        id: text

        anchors.left: symbol.right
        anchors.leftMargin: Theme.spacing
        anchors.right: button.left
        anchors.rightMargin: Theme.spacing
        anchors.verticalCenter: parent.verticalCenter
        text: qsTr("Notifications are off")
        font: Theme.type.subheadline
        color: Theme.color.textSecondary
        maximumLineCount: 2
    }

    PressableItem {
        id: button

        objectName: "dashboard.openSettings"
        anchors.right: parent.right
        anchors.rightMargin: Theme.padding
        anchors.verticalCenter: parent.verticalCenter
        width: Math.min(label.implicitWidth, root.width / 2)
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
            horizontalAlignment: Text.AlignRight
            maximumLineCount: 2
            Accessible.ignored: true
        }
    }
}
