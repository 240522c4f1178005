import QtQuick
import Quorvane.Design

/// The shadow of its parent, behind it.
NinePatchShadow {
    required property ShadowStyle style

    anchors.fill: parent
    z: -1
    color: style.color
    blurRadius: style.blurRadius
    offset: style.offset
}
