pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Design

/// Scrolls content that is taller than itself and shows a scroll indicator.
Flickable {
    id: root

    contentWidth: width
    boundsBehavior: contentHeight > height ? Flickable.DragAndOvershootBounds : Flickable.StopAtBounds
    interactive: contentHeight > height

    Rectangle {
        parent: root
        anchors.right: parent.right
        anchors.rightMargin: 3
        y: root.visibleArea.yPosition * root.height
        width: 3
        height: root.visibleArea.heightRatio * root.height
        radius: width / 2
        visible: root.visibleArea.heightRatio < 1
        color: Theme.color.scrollIndicator
    }
}
