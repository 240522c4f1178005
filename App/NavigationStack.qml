pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// A screen and, while there is a destination, the screen that slides over it from the right. It is left by its back
/// button, by Escape or the back key, and by a swipe from the left edge.
FocusScope {
    id: root

    default property alias content: underneath.data
    /// The document of a screen with a presentation mode; empty for none. The one shown last stays until it has slid away.
    property string destination
    readonly property PresentationMode presentationMode: PresentationMode {
        onDismissed: root.backWanted()
    }
    readonly property bool isShowingDestination: destination !== ""

    /// The user wants the destination to go.
    signal backWanted

    onDestinationChanged: {
        // What is bound to it may not have followed yet.
        if (destination !== "") {
            screen.setSource(destination, {
                presentationMode: presentationMode
            });
            over.forceActiveFocus();
        } else {
            underneath.forceActiveFocus();
        }
        over.settle();
    }

    FocusScope {
        id: underneath

        anchors.fill: parent
        focus: true
        // Taps reach it until it is covered.
        visible: over.offset > 0
    }

    FocusScope {
        id: over

        /// 0: in place; 1: out of sight.
        property real offset: 1

        /// To where it belongs, from where the finger left it.
        function settle() {
            offset = root.destination !== "" ? 0 : 1;
        }

        objectName: "navigation.destination"
        x: Math.round(offset * width)
        width: root.width
        height: root.height
        visible: offset < 1
        enabled: root.isShowingDestination
        Keys.onEscapePressed: root.backWanted()
        Keys.onBackPressed: root.backWanted()
        onVisibleChanged: {
            if (!visible)
                screen.source = "";
        }

        Behavior on offset {
            enabled: !swipe.active

            EaseInOut {
                duration: Theme.motion.push
            }
        }

        Shadow {
            style: Theme.shadow.floating
        }

        Rectangle {
            anchors.fill: parent
            color: Theme.color.systemBackground
        }

        Loader {
            id: screen

            anchors.fill: parent
            anchors.topMargin: bar.height
        }

        Item {
            id: bar

            width: parent.width
            height: Theme.minimumTarget

            PressableItem {
                objectName: "navigation.back"
                width: backRow.width + 2 * Theme.spacing
                height: parent.height
                cornerRadius: Theme.radius.strip
                focus: true
                accessibleName: qsTr("Back")
                onClicked: root.backWanted()

                Row {
                    id: backRow

                    anchors.centerIn: parent
                    opacity: parent.isPressed ? Theme.pressedOpacity : 1
                    spacing: Theme.spacing / 2

                    Symbol {
                        anchors.verticalCenter: parent.verticalCenter
                        name: "chevron.backward"
                        color: Theme.color.tint
                    }

                    TextLabel {
                        anchors.verticalCenter: parent.verticalCenter
                        text: qsTr("Back")
                        color: Theme.color.tint
                        Accessible.ignored: true
                    }
                }
            }
        }

        Item {
            width: 20
            height: parent.height

            DragHandler {
                id: swipe

                target: null
                yAxis.enabled: false
                cursorShape: Qt.ArrowCursor
                // Not out of sight before the finger lets go.
                onActiveTranslationChanged: {
                    if (active)
                        over.offset = Math.min(0.99, Math.max(0, activeTranslation.x / over.width));
                }
                onActiveChanged: {
                    if (active)
                        return;
                    const isLeaving = over.offset > 0.35 || centroid.velocity.x > 300;
                    if (isLeaving)
                        root.backWanted();
                    else
                        over.settle();
                }
            }
        }
    }
}
