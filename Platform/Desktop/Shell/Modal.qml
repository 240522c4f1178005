import QtQuick
import Quorvane.Shell

/// An overlay that covers the whole window while it is open. It blocks all input to the items below and keeps the focus
/// inside. Its content animates with `progress`.
FocusScope {
    id: root

    required property bool isOpen
    /// The item that has the focus whenever the overlay opens. Its `focus` must initially be true.
    required property Item initialFocus
    /// Whether another overlay covers this one.
    property bool isCovered: false
    property int duration: ShellStyle.fade
    /// From 0 (invisible) to 1 (in place).
    property real progress: isComplete && isOpen ? 1 : 0
    property bool isComplete: false
    readonly property bool isGone: !isOpen && progress === 0
    readonly property bool isFocusOutside: isOpen && !isCovered && Window.active && !activeFocus

    /// Emitted for a tap outside the content.
    signal outsideTapped
    /// Emitted when the overlay has disappeared.
    signal gone

    anchors.fill: parent
    visible: !isGone
    enabled: isOpen
    // Prevents the application's shortcuts.
    Keys.onShortcutOverride: event => event.accepted = true
    Keys.onPressed: event => event.accepted = true
    onIsGoneChanged: {
        if (isGone)
            gone();
    }
    onIsOpenChanged: {
        if (!isOpen)
            initialFocus.focus = true;
    }
    Component.onCompleted: isComplete = true

    Behavior on progress {
        NumberAnimation {
            duration: root.duration
            easing.type: Easing.OutCubic
        }
    }

    // Delayed, because another item is still changing the focus.
    Timer {
        interval: 0
        running: root.isFocusOutside
        onTriggered: root.forceActiveFocus(Qt.PopupFocusReason)
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
