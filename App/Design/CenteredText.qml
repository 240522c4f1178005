import QtQuick
import Quorvane.Design

/// Centered text with lines of about the same length. Set its width.
TextLabel {
    /// Minimum distance of the text from the left and right edges.
    property real sidePadding: Theme.padding
    readonly property real room: width - 2 * sidePadding

    font: TextFit.wholeWords(text, face, room)
    leftPadding: sidePadding + Math.floor((room - TextFit.balancedWidth(text, font, room)) / 2)
    rightPadding: leftPadding
    horizontalAlignment: Text.AlignHCenter
}
