pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// A dashboard card; acts as a button. A disabled card is gray, flat and does not react.
PressableItem {
    id: root

    required property string title
    required property string description
    required property string icon
    /// Whether this card's detail screen is shown.
    property bool isActive: false
    readonly property bool isEnabled: enabled

    readonly property color accent: isEnabled ? Theme.color.orange : Theme.color.gray

    implicitHeight: 170
    cornerRadius: Theme.radius.card
    accessibleName: title
    accessibleDescription: description

    InteractiveCardButtonStyle {
        id: face

        objectName: "face"
        anchors.fill: parent
        isPressed: root.isPressed

        Surface {
            objectName: "panel"
            anchors.fill: parent
            smooth: face.scale !== 1
            radius: root.cornerRadius
            color: root.isEnabled ? Theme.color.systemBackground : Theme.color.grayMist
            borderWidth: root.isEnabled ? Theme.line.border : Theme.line.thin
            borderColor: !root.isEnabled ? Theme.color.grayTint : root.isActive ? Theme.color.orange : Theme.color.orangeLine
            shadow: root.isEnabled ? Theme.shadow.card : Theme.shadow.none
        }

        Item {
            anchors.fill: parent
            anchors.margins: 20

            Panel {
                id: badge

                objectName: "badge"
                anchors.horizontalCenter: parent.horizontalCenter
                width: 60
                height: width
                radius: width / 2
                color: !root.isEnabled ? Theme.color.grayTint : root.isActive ? Theme.color.orange : Theme.color.orangeTint

                Symbol {
                    anchors.centerIn: parent
                    name: root.icon
                    pointSize: Theme.type.title2.pixelSize
                    color: root.isEnabled && root.isActive ? Theme.color.textOnOrange : root.accent
                }
            }

            Item {
                id: labels

                objectName: "labels"
                anchors.verticalCenter: parent.verticalCenter
                anchors.verticalCenterOffset: (badge.height - footer.height) / 2
                width: parent.width
                height: 50
                clip: true

                TextLabel {
                    id: titleLabel

                    objectName: "title"
                    width: parent.width
                    text: root.title
                    font: Theme.type.headline
                    color: root.isEnabled ? Theme.color.label : Theme.color.gray
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.NoWrap
                    Accessible.ignored: true
                }

                TextLabel {
                    objectName: "description"
                    anchors.top: titleLabel.bottom
                    width: parent.width
                    // As many lines as fit; none with a large text size.
                    maximumLineCount: Math.floor((parent.height - titleLabel.height + 1) / Math.ceil(font.pixelSize * 1.2))
                    visible: maximumLineCount > 0
                    text: root.description
                    font: Theme.type.caption
                    color: root.isEnabled ? Theme.color.textSecondary : Theme.color.gray
                    horizontalAlignment: Text.AlignHCenter
                    Accessible.ignored: true
                }
            }

            Row {
                id: footer

                anchors.horizontalCenter: parent.horizontalCenter
                anchors.bottom: parent.bottom
                spacing: Theme.spacing / 2

                Symbol {
                    anchors.verticalCenter: parent.verticalCenter
                    visible: !root.isEnabled
                    name: "lock.fill"
                    pointSize: Theme.type.caption2.pixelSize
                    color: root.accent
                }

                TextLabel {
                    anchors.verticalCenter: parent.verticalCenter
                    width: Math.min(implicitWidth, labels.width - 16 - parent.spacing)
                    text: root.isEnabled ? qsTr("Tap to view details") : qsTr("Coming Soon")
                    font: Theme.type.caption2
                    color: root.accent
                    wrapMode: Text.NoWrap
                    Accessible.ignored: true
                }

                Item {
                    anchors.verticalCenter: parent.verticalCenter
                    width: 16
                    height: chevron.height

                    Symbol {
                        id: chevron

                        anchors.centerIn: parent
                        name: "chevron.right"
                        pointSize: Theme.type.caption.pixelSize
                        color: root.accent
                    }
                }
            }
        }
    }
}
