pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Design

/// The product's logo, with an optional shadow that follows its shape.
Item {
    id: root

    required property real size
    property ShadowStyle shadow: Theme.shadow.none

    readonly property real pixelsPerPoint: Screen.devicePixelRatio
    readonly property int pixels: Math.round(size * pixelsPerPoint)

    implicitWidth: size
    implicitHeight: size
    Accessible.role: Accessible.Graphic
    Accessible.name: qsTr("Quorvane UEM")

    Image {
        readonly property int blur: Math.round(root.shadow.blurRadius * root.pixelsPerPoint)

        x: root.shadow.offset.x - Artwork.logoShadowMargin(blur) / root.pixelsPerPoint
        y: root.shadow.offset.y - Artwork.logoShadowMargin(blur) / root.pixelsPerPoint
        width: (root.pixels + 2 * Artwork.logoShadowMargin(blur)) / root.pixelsPerPoint
        height: width
        source: Artwork.logoShadow(root.pixels, blur, root.shadow.color)
    }

    Image {
        width: root.pixels / root.pixelsPerPoint
        height: width
        source: Artwork.logo(root.pixels)
    }
}
