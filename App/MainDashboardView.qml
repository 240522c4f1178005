pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The dashboard and, on top of it, the detail screen of the tapped card.
NavigationStack {
    id: root

    required property MainDashboardViewModel view
    required property bool isRegular

    readonly property real stackSpacing: isRegular ? 32 : 20
    readonly property real sidePadding: isRegular ? 60 : 20
    readonly property real headerTopPadding: isRegular ? 40 : 20
    readonly property real rowSpacing: isRegular ? 24 : 16
    readonly property real maximumContentWidth: isRegular ? 900 : Infinity

    destination: view.destination
    onBackRequested: view.goBack()
    Component.onCompleted: view.appear()

    Rectangle {
        anchors.fill: parent
        color: Theme.color.systemBackground
    }

    ScrollArea {
        id: scroll

        anchors.fill: parent
        contentHeight: column.height

        Column {
            id: column

            objectName: "dashboard.content"
            anchors.horizontalCenter: parent.horizontalCenter
            width: Math.min(scroll.width, root.maximumContentWidth)
            spacing: root.stackSpacing

            Column {
                width: parent.width
                topPadding: root.headerTopPadding
                spacing: 12

                Logo {
                    objectName: "dashboard.logo"
                    anchors.horizontalCenter: parent.horizontalCenter
                    size: 60
                }

                HeaderText {
                    text: qsTr("Quorvane UEM")
                    font: Theme.type.title2Bold
                    Accessible.role: Accessible.Heading
                }

                HeaderText {
                    objectName: "dashboard.subtitle"
                    text: qsTr("Device Management Dashboard")
                    font: Theme.type.subheadline
                    color: Theme.color.textSecondary
                }
            }

            // At most one item.
            Repeater {
                model: root.view.notificationPermissionDenied ? 1 : 0

                WarningStrip {
                    objectName: "dashboard.warning"
                    x: root.sidePadding
                    width: column.width - 2 * root.sidePadding
                    onSettingsRequested: root.view.openSettings()
                }
            }

            Grid {
                id: grid

                readonly property real columnWidth: (width - columnSpacing) / columns

                x: root.sidePadding
                width: parent.width - 2 * root.sidePadding
                columns: 2
                columnSpacing: Theme.spacing
                rowSpacing: root.rowSpacing

                Repeater {
                    model: root.view.cards

                    FeatureCard {
                        required property featureCard modelData

                        objectName: "dashboard.card." + modelData.icon
                        width: grid.columnWidth
                        title: modelData.title
                        description: modelData.description
                        icon: modelData.icon
                        enabled: modelData.isEnabled
                        isActive: root.view.selectedCard === modelData.type
                        focus: modelData.type === MainDashboardViewModel.Sso
                        onClicked: root.view.tapCard(modelData.type)
                    }
                }
            }

            Item {
                width: parent.width
                height: 100
            }
        }
    }

    component HeaderText: TextLabel {
        width: parent.width
        leftPadding: Theme.padding
        rightPadding: Theme.padding
        horizontalAlignment: Text.AlignHCenter
    }
}
