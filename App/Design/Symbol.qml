pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Design

/// A symbol in one colour, as tall as text of the same size feels, sharp at every size.
///
/// The names are those of the files in Assets/symbols; one there is no file of is a warning. It is passed over
/// when the screen is read aloud: whoever shows a symbol says in words what it means.
Item {
    id: root

    required property string name
    property real pointSize: Theme.type.body.pixelSize
    property color color: Theme.color.label

    // Whole, so that centring it leaves it on whole points and its picture on whole pixels.
    implicitWidth: Math.round(pointSize * Theme.symbolSidePerPoint)
    implicitHeight: implicitWidth
    Accessible.ignored: true

    Image {
        readonly property int pixels: Math.round(root.implicitWidth * Screen.devicePixelRatio)

        width: pixels / Screen.devicePixelRatio
        height: width
        mirror: root.name.endsWith(".backward") && Application.layoutDirection === Qt.RightToLeft
        source: Artwork.symbol(root.name, pixels, root.color)
    }
}
