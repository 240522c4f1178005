pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.Design

/// Scrolls upwards and downwards what is higher than itself, and shows at its edge which part is on view.
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
