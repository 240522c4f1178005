import QtQuick
import Quorvane.Design

/// Shows around its parent that the keyboard acts on it. Whoever has the focus decides when it is visible.
Panel {
    /// Of the parent.
    property real cornerRadius: 0
    readonly property real distance: Theme.line.focusGap + Theme.line.focusRing

    anchors.fill: parent
    anchors.margins: -distance
    radius: cornerRadius + distance
    borderWidth: Theme.line.focusRing
    borderColor: Theme.color.focusRing
    Accessible.ignored: true
}
