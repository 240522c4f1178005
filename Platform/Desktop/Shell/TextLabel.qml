import QtQuick
import Quorvane.Shell

/// Text as it is, on as many lines as it needs.
Text {
    id: root

    /// What it needs to stay on one line, the rounding of the layout included.
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
