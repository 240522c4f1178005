import QtQuick

/// Plain, wrapping text, in the body font by default.
Text {
    color: Theme.color.label
    font: Theme.type.body
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    // Sharper at small sizes, and identical on every renderer.
    renderType: Text.NativeRendering
    elide: Text.ElideRight
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
