import QtQuick
import Quorvane.Shell

/// A button with a label.
PressableItem {
    id: root

    required property string text
    property font font: ShellStyle.emphasized
    property color color: ShellStyle.button

    implicitWidth: Math.max(ShellStyle.minimumTarget, label.naturalWidth + 2 * ShellStyle.padding)
    implicitHeight: Math.max(ShellStyle.minimumTarget, Math.ceil(label.implicitHeight) + 2 * ShellStyle.spacing)
    cornerRadius: ShellStyle.buttonRadius
    accessibleName: text

    Rectangle {
        anchors.fill: parent
        radius: root.cornerRadius
        color: root.isPressed ? ShellStyle.buttonPressed : root.color
    }

    TextLabel {
        id: label

        anchors.centerIn: parent
        width: Math.min(naturalWidth, parent.width - ShellStyle.spacing)
        text: root.text
        face: root.font
        color: ShellStyle.tint
        wrapMode: Text.NoWrap
        Accessible.ignored: true
    }
}
