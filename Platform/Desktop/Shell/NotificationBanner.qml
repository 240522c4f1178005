import QtQuick
import Quorvane.Shell

/// A notification at the top of the window. It disappears after a while; a tap, an upward swipe and Escape count as
/// responses.
PressableItem {
    id: root

    required property NotificationBannerModel banner
    required property string applicationName
    readonly property string title: banner.title || applicationName
    readonly property bool isHeld: isPressed || activeFocus
    readonly property bool isGone: !banner.isShown && progress === 0
    readonly property Item focusItem: Window.activeFocusItem
    property Item previousFocusItem: null
    /// How far a finger has moved the banner; negative means upward.
    property real offset: 0
    /// From 0 (invisible) to 1 (in place).
    property real progress: isComplete && banner.isShown ? 1 : 0
    property bool isComplete: false

    function respond() {
        if (activeFocus && previousFocusItem)
            previousFocusItem.forceActiveFocus(Qt.PopupFocusReason);
        banner.respond();
    }

    objectName: "shell.banner"
    anchors.horizontalCenter: parent.horizontalCenter
    y: Math.round((height + 2 * ShellStyle.spacing) * (progress - 1) + ShellStyle.spacing + offset)
    width: Math.min(Math.round(ShellStyle.bannerWidth * ShellStyle.textScale), parent.width - 2 * ShellStyle.spacing)
    height: Math.max(mark.height, labels.height) + 2 * 12
    visible: !isGone
    enabled: banner.isShown
    cornerRadius: ShellStyle.panelRadius
    accessibleName: title + "\n" + banner.body
    Accessible.role: Accessible.Notification
    // Prevents the application's shortcuts for this key.
    Keys.onShortcutOverride: event => event.accepted = event.key === Qt.Key_Escape
    Keys.onEscapePressed: respond()
    blocksWheel: true
    // The banner follows a finger upward. The finger therefore stays inside, and the swipe ends as a tap.
    onTravelChanged: offset = Math.min(0, travel)
    onCancelled: offset = 0
    onTriggered: respond()
    onIsHeldChanged: banner.hold(isHeld)
    onFocusItemChanged: {
        if (focusItem && focusItem !== root)
            previousFocusItem = focusItem;
    }
    onIsGoneChanged: {
        offset = 0;
        if (isGone)
            banner.leave();
    }
    Component.onCompleted: isComplete = true

    Behavior on progress {
        NumberAnimation {
            duration: ShellStyle.slide
            easing.type: Easing.OutCubic
        }
    }

    Shadow {
        cornerRadius: root.cornerRadius
    }

    Rectangle {
        anchors.fill: parent
        radius: root.cornerRadius
        color: ShellStyle.row
        border.color: ShellStyle.outline
    }

    ApplicationMark {
        id: mark

        anchors.left: parent.left
        anchors.leftMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        size: 38
    }

    Column {
        id: labels

        anchors.left: mark.right
        anchors.right: parent.right
        anchors.leftMargin: 12
        anchors.rightMargin: ShellStyle.padding
        anchors.verticalCenter: parent.verticalCenter
        spacing: 2

        TextLabel {
            width: parent.width
            text: root.title
            face: ShellStyle.bannerTitle
            maximumLineCount: 2
            Accessible.ignored: true
        }

        TextLabel {
            width: parent.width
            visible: text !== ""
            text: root.banner.body
            face: ShellStyle.bannerBody
            maximumLineCount: 2
            Accessible.ignored: true
        }
    }
}
