import QtQuick
import Quorvane.Shell

/// The application's icon in the shell.
Rectangle {
    id: root

    required property real size

    width: size
    height: size
    radius: Math.round(size * 0.24)
    color: ShellStyle.mark
    Accessible.ignored: true

    Text {
        anchors.centerIn: parent
        text: "Q"
        color: ShellStyle.markLetter
        font.family: ShellStyle.title.family
        font.pixelSize: Math.round(root.size * 0.62)
        font.weight: Font.Bold
        Accessible.ignored: true
    }
}
