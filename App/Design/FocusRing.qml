pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Design

/// A focus ring around its parent, or inside its edge. Two colors make it stand out from any color next to it. The parent
/// sets `visible`.
Panel {
    id: root

    /// The parent's corner radius.
    property real cornerRadius: 0
    property bool isInside: false
    /// Whether the background is light in dark appearance, too.
    property bool isOnLightBackground: false
    readonly property color innerColor: isOnLightBackground ? Theme.lightColor.focusRingInner : Theme.color.focusRingInner
    readonly property real reach: isInside ? 0 : Theme.line.focusRingInner + Theme.line.focusRing

    anchors.fill: parent
    anchors.margins: -reach
    radius: cornerRadius + reach
    borderWidth: Theme.line.focusRing
    borderColor: isOnLightBackground ? Theme.lightColor.focusRing : Theme.color.focusRing
    Accessible.ignored: true

    Panel {
        anchors.fill: parent
        anchors.margins: root.borderWidth
        radius: root.radius - root.borderWidth
        borderWidth: Theme.line.focusRingInner
        borderColor: root.innerColor
        Accessible.ignored: true
    }
}
