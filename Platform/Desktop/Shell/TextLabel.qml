import QtQuick
import Quorvane.Shell

/// Plain text on as many lines as it needs.
Text {
    id: root

    /// The width of the text on one line, rounded up for the layout.
    readonly property real naturalWidth: Math.ceil(metrics.advanceWidth) + 1

    color: ShellStyle.label
    font: ShellStyle.body
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    elide: Text.ElideRight
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    TextMetrics {
        id: metrics

        font: root.font
        text: root.text
    }
}
