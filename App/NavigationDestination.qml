pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// A screen below a navigation bar with a back button; slides in over its parent and out again, on the right or, in a
/// right-to-left layout, on the left.
FocusScope {
    id: root

    /// Passed to the screen.
    required property PresentationMode presentationMode
    /// Whether the screen slides in; it is unloaded after it has slid out.
    property bool isShown: false
    /// Horizontal offset as a fraction of the width: 0 is fully shown, 1 fully hidden.
    property real offset: 1
    /// The direction of the slide-out: 1 is right, -1 left.
    readonly property int outward: LayoutMirroring.enabled ? -1 : 1

    signal backRequested

    /// Shows the screen at the URL `document`, which must have a `presentationMode` property.
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
    /// Animates to the final offset, also from the middle of a swipe.
    function settle() {
        offset = isShown ? 0 : 1;
    }

    objectName: "navigation.destination"
    x: Math.round(outward * offset * width)
    width: parent.width
    height: parent.height
    visible: offset < 1
    enabled: isShown
    Keys.forwardTo: [screen.item]
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

    Item {
        id: bar

        width: parent.width
        height: Theme.minimumTarget

        PressableItem {
            objectName: "navigation.back"
            anchors.left: parent.left
            width: backRow.width + 2 * Theme.spacing
            height: parent.height
            cornerRadius: Theme.radius.strip
            // The button touches the window's edge.
            isFocusRingInside: true
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
                    font: Theme.type.body
                    color: Theme.color.tint
                    Accessible.ignored: true
                }
            }
        }
    }

    Loader {
        id: screen

        anchors.fill: parent
        anchors.topMargin: bar.height
    }

    Item {
        anchors.left: parent.left
        width: 20
        height: parent.height

        DragHandler {
            id: swipe

            target: null
            yAxis.enabled: false
            cursorShape: Qt.ArrowCursor
            /// In points per second, outward.
            property real velocity: 0
            /// A swipe at least this fast counts, however short.
            readonly property real flingVelocity: 400
            property bool isHeld: false

            /// Whether the swipe went far or fast enough to go back.
            function goesBack(): bool {
                const isFling = Math.abs(velocity) > flingVelocity;
                return isFling ? velocity > 0 : root.offset > 0.4;
            }

            onCentroidChanged: {
                if (active)
                    velocity = root.outward * centroid.velocity.x;
            }
            // At 1 the screen would be unloaded during the swipe.
            onActiveTranslationChanged: {
                if (active)
                    root.offset = Math.min(0.99, Math.max(0, root.outward * activeTranslation.x / root.width));
            }
            // A released touch is ungrabbed first and then canceled too; a touch that the system takes away is only
            // canceled first.
            onGrabChanged: transition => {
                if (transition === PointerDevice.GrabExclusive) {
                    isHeld = true;
                } else if (isHeld && (transition === PointerDevice.UngrabExclusive || transition === PointerDevice.CancelGrabExclusive)) {
                    isHeld = false;
                    if (transition === PointerDevice.UngrabExclusive && goesBack())
                        root.backRequested();
                    else
                        root.settle();
                }
            }
        }
    }
}
