import QtQuick
import Quorvane.Shell

/// Plain text on as many lines as it needs. Set its width. The font becomes smaller if a word does not fit.
Text {
    id: root

    property font face: ShellStyle.body
    readonly property real fit: width / ruler.contentWidth
    /// For a longer word, such as a URL, the line is broken in the word.
    readonly property real minimumFit: 0.6
    /// The width of the text on one line, rounded up for the layout.
    readonly property real naturalWidth: Math.ceil(metrics.advanceWidth) + 1

    color: ShellStyle.label
    font.family: face.family
    font.weight: face.weight
    font.letterSpacing: face.letterSpacing
    font.pixelSize: fit < 1 && fit >= minimumFit ? Math.floor(face.pixelSize * fit) : face.pixelSize
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    elide: Text.ElideRight
    // On the right in right-to-left layouts, also for Latin letters.
    horizontalAlignment: Text.AlignLeft
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    TextMetrics {
        id: metrics

        font: root.face
        text: root.text
    }

    Text {
        id: ruler

        visible: false
        width: root.width
        text: root.text
        font: root.face
        textFormat: Text.PlainText
        horizontalAlignment: Text.AlignLeft
        wrapMode: root.wrapMode === Text.NoWrap ? Text.NoWrap : Text.WordWrap
    }
}
