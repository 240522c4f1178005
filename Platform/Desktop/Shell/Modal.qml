import QtQuick
import Quorvane.Shell

/// Lies over the whole window while it is open: keeps every input from what is below and the focus inside, and gives
/// the focus back to the item that had it. Its content follows `progress` as it comes and goes.
FocusScope {
    id: root

    required property bool isOpen
    /// Where the keyboard is whenever it opens; `focus` is true at first.
    required property Item initialFocus
    /// Something else lies over it.
    property bool isCovered: false
    property int duration: ShellStyle.fade
    /// From 0, out of sight, to 1, in place.
    property real progress: isComplete && isOpen ? 1 : 0
    property bool isComplete: false
    readonly property bool isGone: !isOpen && progress === 0
    readonly property bool isFocusAstray: isOpen && !isCovered && Window.active && !activeFocus
    property Item itemInFocusBefore: null

    /// A tap beside its content.
    signal outsideTapped
    /// Nothing is seen of it any more.
    signal gone

    function takeFocus() {
        itemInFocusBefore = Window.activeFocusItem;
        forceActiveFocus(Qt.PopupFocusReason);
    }

    function giveFocusBack() {
        if (itemInFocusBefore && itemInFocusBefore.visible && itemInFocusBefore.enabled)
            itemInFocusBefore.forceActiveFocus(Qt.PopupFocusReason);
        itemInFocusBefore = null;
        initialFocus.focus = true;
    }

    anchors.fill: parent
    visible: !isGone
    enabled: isOpen
    // Before a shortcut of the application takes it.
    Keys.onShortcutOverride: event => event.accepted = true
    Keys.onPressed: event => event.accepted = true
    onIsGoneChanged: {
        if (isGone)
            gone();
    }
    onIsOpenChanged: {
        if (!isOpen)
            giveFocusBack();
    }
    Component.onCompleted: isComplete = true

    Behavior on progress {
        NumberAnimation {
            duration: root.duration
            easing.type: Easing.OutCubic
        }
    }

    // Not at once: whatever moved the focus is still at it.
    Timer {
        interval: 0
        running: root.isFocusAstray
        onTriggered: root.takeFocus()
    }

    PressArea {
        anchors.fill: parent
        blocksWheel: true
        onTapped: root.outsideTapped()

        Rectangle {
            anchors.fill: parent
            color: ShellStyle.scrim
            opacity: root.progress
            Accessible.ignored: true
        }
    }
}
