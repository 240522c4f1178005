import QtQuick
import Quorvane.Design

/// A symbol in one color, sized to match text of `pointSize`.
///
/// `name` is a file name in Assets/symbols without ".svg"; an unknown name logs a warning. Screen readers ignore
/// symbols, so the item that contains one needs an accessible name.
SymbolPicture {
    required name
    property real pointSize: Theme.type.body.pixelSize

    color: Theme.color.label
    isRightToLeft: Application.layoutDirection === Qt.RightToLeft
    // Rounded, so that a centered symbol starts on a whole pixel.
    implicitWidth: Math.round(pointSize * Theme.symbolSidePerPoint)
    implicitHeight: implicitWidth
    Accessible.ignored: true
}
