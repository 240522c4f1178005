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
    property bool isEnabled: true

    readonly property real padding: 20
    readonly property color accent: isEnabled ? Theme.color.orange : Theme.color.gray

    // Grows only with large text.
    implicitHeight: Theme.isTextLarge ? content.height + 2 * padding : 170
    enabled: isEnabled
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

        Column {
            id: content

            y: Math.round((parent.height - height) / 2)
            anchors.horizontalCenter: parent.horizontalCenter
            width: parent.width - 2 * root.padding
            spacing: Theme.spacing

            Panel {
                objectName: "badge"
                anchors.horizontalCenter: parent.horizontalCenter
                width: Math.round(60 * Theme.type.scale)
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
                width: parent.width
                height: Theme.isTextLarge ? texts.height : 50

                Column {
                    id: texts

                    y: Math.round((parent.height - height) / 2)
                    width: parent.width

                    CenteredText {
                        id: titleLabel

                        objectName: "title"
                        width: parent.width
                        sidePadding: 0
                        text: root.title
                        font: TextFit.oneLine(text, Theme.type.headline, width, Theme.minimumNameScale)
                        Accessible.ignored: true
                        color: root.isEnabled ? Theme.color.label : Theme.color.gray
                    }

                    CardText {
                        // With the normal text size, the name and the description may fill most of the space above and
                        // below their box.
                        readonly property real room: labels.height + 1.5 * Theme.spacing - titleLabel.height

                        objectName: "description"
                        // As many lines as fit.
                        maximumLineCount: Theme.isTextLarge ? 100 : Math.max(1, room / (1.2 * font.pixelSize))
                        text: root.description
                        font: Theme.isTextLarge ? TextFit.wholeWords(text, Theme.type.caption, width) : TextFit.inBox(text, Theme.type.caption, Qt.size(width, room), Theme.minimumCaptionScale)
                        color: root.isEnabled ? Theme.color.textSecondary : Theme.color.gray
                    }
                }
            }

            Row {
                anchors.horizontalCenter: parent.horizontalCenter
                spacing: Theme.spacing / 2

                Symbol {
                    anchors.verticalCenter: parent.verticalCenter
                    visible: !root.isEnabled
                    name: "lock.fill"
                    pointSize: Theme.type.caption2.pixelSize
                    color: root.accent
                }

                CardText {
                    anchors.verticalCenter: parent.verticalCenter
                    width: Math.min(implicitWidth, labels.width - chevron.width - parent.spacing)
                    text: root.isEnabled ? qsTr("Tap to view details") : qsTr("Coming Soon")
                    font: Theme.type.caption2
                    color: root.accent
                }

                Item {
                    id: chevron

                    anchors.verticalCenter: parent.verticalCenter
                    width: Math.round(16 * Theme.type.scale)
                    height: chevronSymbol.height

                    Symbol {
                        id: chevronSymbol

                        anchors.centerIn: parent
                        name: "chevron.right"
                        pointSize: Theme.type.caption.pixelSize
                        color: root.accent
                    }
                }
            }
        }
    }

    component CardText: TextLabel {
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        // The card has a name and a description itself.
        Accessible.ignored: true
    }
}
