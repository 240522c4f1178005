pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The layout of the detail screens: a centered symbol, title and description. Scrolls if the content does not fit.
Item {
    id: root

    required property string symbol
    required property string title
    required property string description
    /// Passed to the detail screen; unused by this layout.
    property PresentationMode presentationMode: null

    Keys.forwardTo: [scroll]
    Accessible.role: Accessible.Pane
    Accessible.name: title

    ScrollArea {
        id: scroll

        anchors.fill: parent
        contentHeight: Math.max(height, stack.height)
        clip: true

        Column {
            id: stack

            anchors.verticalCenter: parent.verticalCenter
            width: parent.width
            topPadding: root.height * 0.03

            Column {
                width: parent.width
                spacing: Theme.spacing

                Panel {
                    objectName: "detail.badge"
                    anchors.horizontalCenter: parent.horizontalCenter
                    width: Math.min(root.width * 0.25, 120)
                    height: width
                    radius: width / 2
                    color: Theme.color.orangeTint

                    Symbol {
                        anchors.centerIn: parent
                        name: root.symbol
                        pointSize: Math.min(root.width * 0.12, 60)
                        color: Theme.color.orange
                    }
                }

                Column {
                    width: parent.width
                    spacing: 12

                    CenteredText {
                        objectName: "detail.title"
                        width: parent.width
                        text: root.title
                        face: Theme.type.title2Bold
                        Accessible.role: Accessible.Heading
                    }

                    CenteredText {
                        objectName: "detail.description"
                        width: parent.width
                        text: root.description
                        face: Theme.type.subheadline
                        color: Theme.color.textSecondary
                    }
                }
            }
        }
    }
}
