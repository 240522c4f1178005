import QtQuick
import Quorvane.Shell

/// Shows around its parent that the keyboard acts on it.
Rectangle {
    /// Of the parent.
    property real cornerRadius: 0
    /// Between the parent and the ring; below 0 the ring lies inside.
    property real gap: 2

    anchors.fill: parent
    anchors.margins: -gap - border.width
    radius: cornerRadius + gap + border.width
    color: "transparent"
    border.width: ShellStyle.focusRingWidth
    border.color: ShellStyle.focusRing
    Accessible.ignored: true
}
