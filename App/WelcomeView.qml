pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The welcome screen. It has a light background, also in dark appearance.
FocusScope {
    id: root

    required property WelcomeViewModel view
    required property bool isRegular

    readonly property real logoSize: isRegular ? 150 : 120
    readonly property real textPadding: isRegular ? 80 : 30
    readonly property real buttonPadding: isRegular ? 100 : 40
    readonly property real maximumContentWidth: isRegular ? 800 : Infinity
    readonly property real spacing: 30
    readonly property real topMargin: Math.round((height - column.height - spacing - button.height - 50) / 2)
    /// Whether the button stays visible while the content above it scrolls, because both do not fit.
    readonly property bool isFooterFixed: topMargin < 0

    Keys.forwardTo: [scroll]

    Panel {
        objectName: "welcome.background"
        anchors.fill: parent
        color: Theme.lightColor.systemBackground
    }

    Panel {
        objectName: "welcome.gradient"
        anchors.fill: parent
        color: Theme.lightColor.systemBackground
        endColor: Theme.lightColor.orangeMist
        gradientDirection: Panel.Vertical
    }

    ScrollArea {
        id: scroll

        readonly property real margin: root.isFooterFixed ? Theme.padding : 0

        anchors.left: parent.left
        anchors.right: parent.right
        y: root.isFooterFixed ? 0 : root.topMargin
        height: root.isFooterFixed ? root.height - footer.height : column.height
        contentHeight: column.height + 2 * margin
        clip: root.isFooterFixed

        Column {
            id: column

            objectName: "welcome.content"
            anchors.horizontalCenter: parent.horizontalCenter
            y: scroll.margin
            width: Math.min(scroll.width, root.maximumContentWidth)
            spacing: root.spacing

            Column {
                width: parent.width
                spacing: 20

                Logo {
                    objectName: "welcome.logo"
                    anchors.horizontalCenter: parent.horizontalCenter
                    size: root.logoSize
                    shadow: Theme.shadow.logo
                }

                Column {
                    width: parent.width
                    spacing: Theme.spacing

                    WelcomeText {
                        text: qsTr("Welcome to")
                        face: Theme.type.title2
                    }

                    WelcomeText {
                        text: qsTr("Quorvane UEM")
                        face: Theme.type.largeTitleBold
                        color: Theme.lightColor.label
                        Accessible.role: Accessible.Heading
                    }
                }
            }

            Column {
                width: parent.width
                spacing: 16

                WelcomeText {
                    objectName: "welcome.headline"
                    sidePadding: root.textPadding
                    text: qsTr("Your comprehensive Unified Endpoint Management solution")
                    face: Theme.type.title3
                }

                WelcomeText {
                    objectName: "welcome.text"
                    sidePadding: root.textPadding
                    text: qsTr("Secure, manage, and stay in control of your work device with built-in enterprise protection.")
                }
            }
        }
    }

    // Ends the stack, or stays at the bottom of the window if the stack is taller.
    Item {
        id: footer

        readonly property real bottomPadding: root.isFooterFixed ? Theme.padding : 50

        anchors.horizontalCenter: parent.horizontalCenter
        y: root.isFooterFixed ? root.height - height : scroll.y + scroll.height + root.spacing
        width: column.width
        height: (root.isFooterFixed ? Theme.padding : 0) + button.height + bottomPadding

        Rectangle {
            objectName: "welcome.line"
            anchors.horizontalCenter: parent.horizontalCenter
            width: root.width
            height: Theme.line.thin
            visible: root.isFooterFixed && !scroll.atYEnd
            color: Theme.lightColor.separator
        }

        GetStartedButton {
            id: button

            objectName: "welcome.getStarted"
            anchors.horizontalCenter: parent.horizontalCenter
            anchors.bottom: parent.bottom
            anchors.bottomMargin: footer.bottomPadding
            width: parent.width - 2 * root.buttonPadding
            focus: true
            onClicked: root.view.getStarted()
        }
    }

    component WelcomeText: CenteredText {
        width: parent.width
        color: Theme.lightColor.textSecondary
    }
}
