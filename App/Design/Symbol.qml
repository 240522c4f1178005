import QtQuick
import Quorvane.Design

/// A symbol in one colour, as tall as text of the same size feels, sharp at every size.
///
/// The names are those of the files in Assets/symbols; one there is no file of is a warning. It is passed over
/// when the screen is read aloud: whoever shows a symbol says in words what it means.
SymbolPicture {
    required name
    property real pointSize: Theme.type.body.pixelSize

    color: Theme.color.label
    isMirrored: name.endsWith(".backward") && Application.layoutDirection === Qt.RightToLeft
    // Whole, so that centring it leaves it on whole points and its picture on whole pixels.
    implicitWidth: Math.round(pointSize * Theme.symbolSidePerPoint)
    implicitHeight: implicitWidth
    Accessible.ignored: true
}
