pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The button that leaves the welcome screen.
PressableItem {
    id: root

    readonly property real labelRoom: width - arrow.width - Theme.spacing - 2 * Theme.padding

    implicitHeight: Math.max(56, label.height + 2 * Theme.spacing)
    isOnLightBackground: true
    cornerRadius: Theme.radius.card
    accessibleName: qsTr("Get Started")

    Surface {
        objectName: "welcome.button"
        anchors.fill: parent
        radius: root.cornerRadius
        color: root.LayoutMirroring.enabled ? Theme.lightColor.orangeSoft : Theme.lightColor.orange
        endColor: root.LayoutMirroring.enabled ? Theme.lightColor.orange : Theme.lightColor.orangeSoft
        gradientDirection: Panel.Horizontal
        shadow: Theme.shadow.button
    }

    Row {
        anchors.centerIn: parent
        spacing: Theme.spacing

        TextLabel {
            id: label

            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(implicitWidth, root.labelRoom)
            text: root.accessibleName
            font: TextFit.oneLine(text, Theme.type.headline, root.labelRoom, Theme.minimumNameScale)
            color: Theme.color.textOnOrange
            horizontalAlignment: Text.AlignHCenter
            Accessible.ignored: true
        }

        Symbol {
            id: arrow

            anchors.verticalCenter: parent.verticalCenter
            name: "arrow.right"
            pointSize: Theme.type.headline.pixelSize
            color: Theme.color.textOnOrange
        }
    }
}
