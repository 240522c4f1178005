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

    Flickable {
        id: scroll

        anchors.fill: parent
        contentHeight: Math.max(height, column.implicitHeight)
        interactive: contentHeight > height
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: column

            objectName: "welcome.content"
            anchors.centerIn: parent
            width: Math.min(scroll.width, root.maximumContentWidth)
            spacing: 30

            Column {
                anchors.horizontalCenter: parent.horizontalCenter
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
                        font: Theme.type.title2
                    }

                    WelcomeText {
                        text: qsTr("Quorvane UEM")
                        font: Theme.type.largeTitleBold
                        color: Theme.lightColor.label
                    }
                }
            }

            Column {
                width: parent.width
                spacing: 16

                WelcomeText {
                    objectName: "welcome.headline"
                    padding: root.textPadding
                    text: qsTr("Your comprehensive Unified Endpoint Management solution")
                    font: Theme.type.title3
                }

                WelcomeText {
                    objectName: "welcome.text"
                    padding: root.textPadding
                    text: qsTr("Secure, manage, and stay in control of your work device with built-in enterprise protection.")
                }
            }

            Item {
                width: parent.width
                // Includes the bottom padding.
                height: button.height + 50

                GetStartedButton {
                    id: button

                    objectName: "welcome.getStarted"
                    x: root.buttonPadding
                    width: parent.width - 2 * root.buttonPadding
                    focus: true
                    onClicked: root.view.getStarted()
                }
            }
        }
    }

    component WelcomeText: TextLabel {
        property real padding: Theme.padding

        leftPadding: padding
        rightPadding: padding
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        color: Theme.lightColor.textSecondary
    }
}
