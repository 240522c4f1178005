import QtQuick

/// Text as it is, in the body font unless told otherwise, on as many lines as it needs.
Text {
    color: Theme.color.label
    font: Theme.type.body
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    // Sharper in small sizes, and the same on every renderer.
    renderType: Text.NativeRendering
    elide: Text.ElideRight
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
