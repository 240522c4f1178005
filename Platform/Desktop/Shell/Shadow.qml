pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Shell

/// A soft shadow around its parent and slightly below it. Drawn as stacked translucent shapes, which look the same on
/// every renderer.
Item {
    id: root

    /// The parent's corner radius.
    required property real cornerRadius
    readonly property int reach: 20

    anchors.fill: parent
    anchors.topMargin: reach / 4
    anchors.bottomMargin: -reach / 4
    z: -1
    Accessible.ignored: true

    Repeater {
        model: root.reach

        Rectangle {
            required property int index
            readonly property real share: 2 * (root.reach - index) / (root.reach * (root.reach + 1))

            anchors.fill: parent
            anchors.margins: -index
            radius: root.cornerRadius + index
            color: Qt.alpha(ShellStyle.shadow, ShellStyle.shadow.a * share)
        }
    }
}
