pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// Scrolls content that is taller than itself: by touch, wheel and keys, and to the item that gets the keyboard focus. An
/// indicator is visible during scrolling and for a moment when it becomes possible.
///
/// It handles keys that its content leaves to it; items outside can use `Keys.forwardTo`.
Flickable {
    id: root

    /// Empty space at the end of the content.
    property real blankHeight: 0
    readonly property bool isScrollable: contentHeight > height
    readonly property Item focusedItem: Window.activeFocusItem
    readonly property real step: Theme.minimumTarget

    function scrollTo(y: real) {
        animation.to = Math.max(0, Math.min(Math.round(y), contentHeight - height));
        animation.restart();
    }
    /// Returns whether there is something to scroll in that direction.
    function scrollBy(distance: real): bool {
        if (!isScrollable || (distance < 0 ? atYBeginning : atYEnd))
            return false;
        scrollTo((animation.running ? animation.to : contentY) + distance);
        return true;
    }
    function isAround(item: Item): bool {
        for (let above = item; above !== null; above = above.parent) {
            if (above === contentItem)
                return true;
        }
        return false;
    }
    function revealFocus() {
        if (FocusVisibility.isShown && isAround(focusedItem))
            reveal(focusedItem);
    }
    function reveal(item: Item) {
        // Leaves room for the focus ring.
        const top = item.mapToItem(contentItem, 0, 0).y - Theme.padding;
        const bottom = top + item.height + 2 * Theme.padding;
        if (top < contentY || bottom - top > height)
            scrollTo(top);
        else if (bottom > contentY + height)
            scrollTo(bottom - height);
    }

    contentWidth: width
    boundsBehavior: isScrollable ? Flickable.DragAndOvershootBounds : Flickable.StopAtBounds
    interactive: isScrollable
    Keys.onPressed: event => {
        const page = height - step;
        const distances = new Map([[Qt.Key_Up, -step], [Qt.Key_Down, step], [Qt.Key_PageUp, -page], [Qt.Key_PageDown, page], [Qt.Key_Home, -contentHeight], [Qt.Key_End, contentHeight]]);
        event.accepted = distances.has(event.key) && scrollBy(distances.get(event.key));
    }
    onFocusedItemChanged: revealFocus()

    Connections {
        function onIsShownChanged() {
            root.revealFocus();
        }

        target: FocusVisibility
    }

    NumberAnimation {
        id: animation

        target: root
        property: "contentY"
        duration: Theme.motion.press
        easing.type: Easing.OutCubic
    }

    Repeater {
        model: root.contentHeight - root.blankHeight > root.height ? 1 : 0

        Rectangle {
            id: indicator

            readonly property real inset: 4
            readonly property real trackLength: root.height - 2 * inset

            objectName: "scroll.indicator"
            parent: root
            // The parent is null during destruction.
            anchors.right: parent?.right
            anchors.rightMargin: 3
            y: inset + Math.max(0, root.visibleArea.yPosition) * trackLength
            width: 3
            height: Math.min(1, root.visibleArea.heightRatio) * trackLength
            radius: width / 2
            color: Theme.color.scrollIndicator
            Component.onCompleted: fade.restart()

            Connections {
                function onContentYChanged() {
                    fade.restart();
                }

                target: root
            }

            SequentialAnimation {
                id: fade

                PropertyAction {
                    target: indicator
                    property: "opacity"
                    value: 1
                }
                PauseAnimation {
                    duration: Theme.motion.indicatorPause
                }
                EaseInOut {
                    target: indicator
                    property: "opacity"
                    to: 0
                }
            }
        }
    }
}
