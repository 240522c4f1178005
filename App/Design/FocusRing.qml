import QtQuick
import Quorvane.Design

/// A focus ring around its parent. The parent sets `visible`.
Panel {
    /// The parent's corner radius.
    property real cornerRadius: 0
    readonly property real distance: Theme.line.focusGap + Theme.line.focusRing

    anchors.fill: parent
    anchors.margins: -distance
    radius: cornerRadius + distance
    borderWidth: Theme.line.focusRing
    borderColor: Theme.color.focusRing
    Accessible.ignored: true
}
