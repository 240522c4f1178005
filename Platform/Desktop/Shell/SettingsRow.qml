import QtQuick
import Quorvane.Shell

/// A name and a value, on one line or, if they do not fit, on two.
Item {
    id: root

    required property string name
    required property string value
    readonly property real innerWidth: width - 2 * ShellStyle.padding
    readonly property real naturalWidth: nameLabel.naturalWidth + ShellStyle.padding + valueLabel.naturalWidth
    readonly property bool isOnOneLine: naturalWidth <= innerWidth

    implicitHeight: Math.max(ShellStyle.rowHeight, labels.height + 2 * 12)
    Accessible.role: Accessible.StaticText
    Accessible.name: qsTr("%1: %2").arg(name).arg(value)

    Grid {
        id: labels

        anchors.left: parent.left
        anchors.leftMargin: ShellStyle.padding
        anchors.verticalCenter: parent.verticalCenter
        columns: root.isOnOneLine ? 2 : 1
        rowSpacing: 2

        TextLabel {
            id: nameLabel

            width: root.isOnOneLine ? naturalWidth : root.innerWidth
            text: root.name
            Accessible.ignored: true
        }

        TextLabel {
            id: valueLabel

            objectName: root.objectName + ".value"
            width: root.isOnOneLine ? root.innerWidth - nameLabel.width : root.innerWidth
            text: root.value
            color: ShellStyle.labelSecondary
            horizontalAlignment: root.isOnOneLine ? Text.AlignRight : Text.AlignLeft
            Accessible.ignored: true
        }
    }
}
