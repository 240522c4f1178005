import QtQuick
import Quorvane.Design

/// Plain text that wraps between words, in the body font by default. In a fixed width, the font becomes smaller if a
/// word does not fit.
Text {
    property font face: Theme.type.body

    color: Theme.color.label
    font: TextFit.wholeWords(text, face, width - leftPadding - rightPadding)
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    // Sharper at small sizes, and identical on every renderer.
    renderType: Text.NativeRendering
    elide: Text.ElideRight
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
