pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// A screen that slides in from the right, over its parent, under a bar with a back button; and out again.
FocusScope {
    id: root

    /// Given to the screen.
    required property PresentationMode presentationMode
    /// Whether it is to be there; the screen itself stays until it has slid away.
    property bool isShown: false
    /// How far it is away: 0 in place, 1 out of sight.
    property real offset: 1

    signal backRequested

    /// Shows the document of a screen with a presentation mode.
    function show(document: string) {
        screen.setSource(document, {
            presentationMode: presentationMode
        });
        isShown = true;
        settle();
        forceActiveFocus();
    }
    function hide() {
        isShown = false;
        settle();
    }
    /// To where it belongs, from where the finger left it.
    function settle() {
        offset = isShown ? 0 : 1;
    }

    objectName: "navigation.destination"
    x: Math.round(offset * width)
    width: parent.width
    height: parent.height
    visible: offset < 1
    enabled: isShown
    Keys.onEscapePressed: backRequested()
    Keys.onBackPressed: backRequested()
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
            onClicked: root.backRequested()

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
                    root.offset = Math.min(0.99, Math.max(0, activeTranslation.x / root.width));
            }
            onActiveChanged: {
                if (active)
                    return;
                const isLeaving = root.offset > 0.35 || centroid.velocity.x > 300;
                if (isLeaving)
                    root.backRequested();
                else
                    root.settle();
            }
        }
    }
}
