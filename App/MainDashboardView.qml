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
        blankHeight: closingSpace.height

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
                    face: Theme.type.title2Bold
                    Accessible.role: Accessible.Heading
                }

                HeaderText {
                    objectName: "dashboard.subtitle"
                    text: qsTr("Device Management Dashboard")
                    face: Theme.type.subheadline
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

                /// Of the card with the focus.
                property int focusedIndex: 0
                readonly property real columnWidth: (width - (columns - 1) * columnSpacing) / columns

                /// Moves the focus to the card in the direction of an arrow key. Returns false if no card is there.
                function focusNeighbor(key: int): bool {
                    const forward = Application.layoutDirection === Qt.RightToLeft ? Qt.Key_Left : Qt.Key_Right;
                    const backward = forward === Qt.Key_Left ? Qt.Key_Right : Qt.Key_Left;
                    const column = focusedIndex % columns;
                    let next = -1;
                    if (key === Qt.Key_Up)
                        next = focusedIndex - columns;
                    else if (key === Qt.Key_Down)
                        next = focusedIndex + columns;
                    else if (key === forward && column < columns - 1)
                        next = focusedIndex + 1;
                    else if (key === backward && column > 0)
                        next = focusedIndex - 1;
                    if (next < 0 || next >= cards.count)
                        return false;
                    cards.itemAt(next).forceActiveFocus(Qt.OtherFocusReason);
                    return true;
                }

                x: root.sidePadding
                width: parent.width - 2 * root.sidePadding
                columns: Theme.isTextLarge ? 1 : 2
                columnSpacing: Theme.spacing
                rowSpacing: root.rowSpacing
                Keys.onPressed: event => event.accepted = focusNeighbor(event.key)

                Repeater {
                    id: cards

                    model: root.view.cards

                    FeatureCard {
                        required property featureCard modelData
                        required property int index

                        objectName: "dashboard.card." + modelData.icon
                        width: grid.columnWidth
                        title: modelData.title
                        description: modelData.description
                        icon: modelData.icon
                        isEnabled: modelData.isEnabled
                        isActive: root.view.selectedCard === modelData.type
                        focus: modelData.type === MainDashboardViewModel.Sso
                        onClicked: root.view.tapCard(modelData.type)
                        onActiveFocusChanged: {
                            if (activeFocus)
                                grid.focusedIndex = index;
                        }
                    }
                }
            }

            Item {
                id: closingSpace

                width: parent.width
                height: 100
            }
        }
    }

    component HeaderText: CenteredText {
        width: parent.width
    }
}
