import QtQuick
import Quorvane.Shell

/// A ring around its parent that marks the keyboard focus.
Rectangle {
    /// The parent's corner radius.
    property real cornerRadius: 0
    /// The distance between parent and ring; negative draws the ring inside the parent.
    property real gap: 2

    anchors.fill: parent
    anchors.margins: -gap - border.width
    radius: cornerRadius + gap + border.width
    color: "transparent"
    border.width: ShellStyle.focusRingWidth
    border.color: ShellStyle.focusRing
    Accessible.ignored: true
}
