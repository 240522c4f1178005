import QtQuick
import Quorvane.Design

/// A shadow behind its parent.
NinePatchShadow {
    required property ShadowStyle style

    anchors.fill: parent
    z: -1
    color: style.color
    blurRadius: style.blurRadius
    offset: style.offset
}
