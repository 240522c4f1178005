import QtQuick
import Quorvane.Shell

/// A name and a switch, on one line or on two. A press anywhere on the row emits `triggered`, whose handler must change
/// `isOn`.
PressableItem {
    id: root

    required property string name
    required property bool isOn
    readonly property real innerWidth: width - 2 * ShellStyle.padding
    readonly property bool isOnOneLine: label.naturalWidth + ShellStyle.padding + track.width <= innerWidth

    implicitHeight: Math.max(ShellStyle.rowHeight, content.height + 2 * 12)
    cornerRadius: ShellStyle.rowRadius
    focusGap: -ShellStyle.focusRingWidth
    accessibleName: name
    Accessible.role: Accessible.CheckBox
    Accessible.checkable: true
    Accessible.checked: isOn
    Accessible.onToggleAction: triggered()

    Grid {
        id: content

        anchors.left: parent.left
        anchors.leftMargin: ShellStyle.padding
        anchors.verticalCenter: parent.verticalCenter
        columns: root.isOnOneLine ? 2 : 1
        rowSpacing: ShellStyle.spacing
        verticalItemAlignment: Grid.AlignVCenter

        TextLabel {
            id: label

            width: root.innerWidth - (root.isOnOneLine ? track.width : 0)
            text: root.name
            Accessible.ignored: true
        }

        Rectangle {
            id: track

            width: 50
            height: 30
            radius: height / 2
            color: root.isOn ? ShellStyle.switchOn : ShellStyle.switchOff

            Behavior on color {
                ColorAnimation {
                    duration: ShellStyle.fade
                }
            }

            Rectangle {
                readonly property real inset: 3
                readonly property bool isRight: root.isOn !== root.LayoutMirroring.enabled

                x: isRight ? parent.width - width - inset : inset
                y: inset
                width: parent.height - 2 * inset
                height: width
                radius: width / 2
                color: ShellStyle.knob

                Behavior on x {
                    NumberAnimation {
                        duration: ShellStyle.fade
                        easing.type: Easing.OutCubic
                    }
                }
            }
        }
    }
}
