pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Shell

/// This application's settings page: at the bottom of narrow windows, in the center of wide ones.
Modal {
    id: root

    required property SettingsSheetModel sheet
    required property string applicationName
    readonly property bool isRegular: width >= ShellStyle.regularWidth

    isOpen: sheet.isOpen
    initialFocus: allowNotifications
    duration: isRegular ? ShellStyle.fade : ShellStyle.slide
    Keys.onEscapePressed: sheet.close()
    Keys.onBackPressed: sheet.close()
    Keys.onUpPressed: rows.scroll(-ShellStyle.minimumTarget)
    Keys.onDownPressed: rows.scroll(ShellStyle.minimumTarget)
    onOutsideTapped: sheet.close()

    DialogFrame {
        id: page

        readonly property real naturalHeight: header.height + rows.contentHeight
        readonly property real restingY: root.isRegular ? Math.round((root.height - height) / 2) : root.height - height

        objectName: "shell.settings"
        anchors.horizontalCenter: parent.horizontalCenter
        y: root.isRegular ? restingY : Math.round(root.height - height * root.progress)
        width: root.isRegular ? ShellStyle.sheetWidth : root.width
        height: Math.min(naturalHeight, root.height - ShellStyle.minimumTarget)
        opacity: root.isRegular ? root.progress : 1
        scale: root.isRegular ? 0.95 + 0.05 * root.progress : 1
        Accessible.role: Accessible.Dialog
        title: root.applicationName

        Rectangle {
            width: parent.width
            // In a narrow window, the sheet's lower corners are outside the window.
            height: parent.height + (root.isRegular ? 0 : radius)
            radius: ShellStyle.panelRadius
            color: ShellStyle.sheet
        }

        PressArea {
            anchors.fill: parent
            blocksWheel: true
        }

        Item {
            id: header

            width: parent.width
            height: Math.max(done.height, title.height) + 2 * ShellStyle.spacing

            ApplicationMark {
                id: mark

                anchors.left: parent.left
                anchors.leftMargin: ShellStyle.padding
                anchors.verticalCenter: parent.verticalCenter
                visible: ShellStyle.padding + size + 12 + title.naturalWidth <= header.width - done.width
                size: 28
            }

            TextLabel {
                id: title

                anchors.left: mark.visible ? mark.right : parent.left
                anchors.right: done.left
                anchors.leftMargin: mark.visible ? 12 : ShellStyle.padding
                anchors.verticalCenter: parent.verticalCenter
                text: root.applicationName
                face: ShellStyle.title
                Accessible.role: Accessible.Heading
            }

            TextButton {
                id: done

                objectName: "shell.settings.done"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                text: qsTr("Done")
                font: ShellStyle.title
                color: "transparent"
                KeyNavigation.tab: allowNotifications
                KeyNavigation.backtab: allowNotifications
                onTriggered: root.sheet.close()
            }
        }

        ScrollArea {
            id: rows

            anchors.top: header.bottom
            anchors.bottom: parent.bottom
            width: parent.width
            contentHeight: column.height

            Column {
                id: column

                x: ShellStyle.padding
                width: parent.width - 2 * ShellStyle.padding
                topPadding: ShellStyle.spacing
                bottomPadding: 28
                spacing: 20

                Group {
                    SwitchRow {
                        id: allowNotifications

                        objectName: "shell.settings.allowNotifications"
                        width: parent.width
                        name: qsTr("Allow Notifications")
                        isOn: root.sheet.isAllowed
                        focus: true
                        KeyNavigation.tab: done
                        KeyNavigation.backtab: done
                        onTriggered: root.sheet.setAllowed(!isOn)
                    }
                }

                Group {
                    SettingsRow {
                        objectName: "shell.settings.notificationServer"
                        width: parent.width
                        name: qsTr("Shown by")
                        value: root.sheet.notificationServer || qsTr("In this window")
                    }

                    Rectangle {
                        anchors.right: parent.right
                        width: parent.width - ShellStyle.padding
                        height: 1
                        color: ShellStyle.separator
                    }

                    SettingsRow {
                        objectName: "shell.settings.pushSource"
                        width: parent.width
                        name: qsTr("Delivered by")
                        value: root.sheet.pushSource
                    }
                }
            }
        }
    }

    component Group: Rectangle {
        default property alias rows: groupColumn.data

        width: parent.width
        height: groupColumn.height
        radius: ShellStyle.rowRadius
        color: ShellStyle.row

        Column {
            id: groupColumn

            width: parent.width
        }
    }
}
