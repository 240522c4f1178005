import QtQuick
import Quorvane.Shell

/// The prompt for permission to show notifications. It stays open until the user answers.
Modal {
    id: root

    required property PermissionPanelModel panel
    required property string applicationName

    /// Ignores answers until the panel is in place, since the user has not seen it before then.
    function answer(isGranted: bool) {
        if (progress === 1)
            panel.answer(isGranted);
    }

    isOpen: panel.isActive
    initialFocus: consent
    onGone: panel.leave()
    Keys.onUpPressed: body.scroll(-ShellStyle.minimumTarget)
    Keys.onDownPressed: body.scroll(ShellStyle.minimumTarget)

    DialogFrame {
        id: card

        readonly property real padding: ShellStyle.padding

        anchors.centerIn: parent
        width: Math.min(Math.round(ShellStyle.panelWidth * ShellStyle.textScale), root.width - 2 * padding)
        height: Math.min(padding + body.contentHeight + padding + buttons.height + padding, root.height - 2 * padding)
        opacity: root.progress
        scale: 0.95 + 0.05 * root.progress
        Accessible.role: Accessible.Dialog
        title: heading.text
        note: explanation.text

        Rectangle {
            anchors.fill: parent
            radius: ShellStyle.panelRadius
            color: ShellStyle.panel
        }

        PressArea {
            anchors.fill: parent
            blocksWheel: true
        }

        ScrollArea {
            id: body

            anchors.top: parent.top
            anchors.bottom: buttons.top
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.margins: card.padding
            contentHeight: column.height

            Column {
                id: column

                width: parent.width
                spacing: 6
                topPadding: 6

                TextLabel {
                    id: heading

                    width: parent.width
                    text: qsTr("\u201c%1\u201d Would Like to Send You Notifications").arg(root.applicationName)
                    face: ShellStyle.title
                    horizontalAlignment: Text.AlignHCenter
                    Accessible.role: Accessible.Heading
                }

                TextLabel {
                    id: explanation

                    width: parent.width
                    text: qsTr("Notifications may include alerts, sounds, and icon badges.")
                    face: ShellStyle.note
                    color: ShellStyle.labelSecondary
                    horizontalAlignment: Text.AlignHCenter
                }
            }
        }

        Grid {
            id: buttons

            readonly property real halfWidth: Math.floor((width - spacing) / 2)
            readonly property bool isSideBySide: Math.max(refusal.implicitWidth, consent.implicitWidth) <= halfWidth
            readonly property real buttonWidth: isSideBySide ? halfWidth : width

            anchors.bottom: parent.bottom
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.margins: card.padding
            columns: isSideBySide ? 2 : 1
            spacing: ShellStyle.spacing

            TextButton {
                id: refusal

                objectName: "shell.dontAllow"
                width: buttons.buttonWidth
                text: qsTr("Don\u2019t Allow")
                KeyNavigation.tab: consent
                KeyNavigation.backtab: consent
                KeyNavigation.right: consent
                onTriggered: root.answer(false)
            }

            TextButton {
                id: consent

                objectName: "shell.allow"
                width: buttons.buttonWidth
                text: qsTr("Allow")
                focus: true
                KeyNavigation.tab: refusal
                KeyNavigation.backtab: refusal
                KeyNavigation.left: refusal
                onTriggered: root.answer(true)
            }
        }
    }
}
