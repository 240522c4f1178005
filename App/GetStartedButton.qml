pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The button that leaves the welcome screen.
PressableItem {
    id: root

    implicitHeight: 56
    cornerRadius: Theme.radius.card
    accessibleName: qsTr("Get Started")

    Surface {
        objectName: "welcome.button"
        anchors.fill: parent
        radius: root.cornerRadius
        color: Theme.lightColor.orange
        endColor: Theme.lightColor.orangeSoft
        gradientDirection: Panel.Horizontal
        shadow: Theme.shadow.button
    }

    Row {
        anchors.centerIn: parent
        spacing: Theme.spacing

        TextLabel {
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(implicitWidth, root.width - arrow.width - parent.spacing - 2 * Theme.padding)
            text: root.accessibleName
            font: Theme.type.headline
            color: Theme.color.textOnOrange
            wrapMode: Text.NoWrap
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
