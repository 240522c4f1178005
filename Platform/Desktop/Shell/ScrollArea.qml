import QtQuick

/// Scrolls content that is higher than the area, by finger, wheel and `scroll()`.
Flickable {
    id: root

    function scroll(distance: real) {
        contentY = Math.max(0, Math.min(contentY + distance, contentHeight - height));
    }

    implicitHeight: contentHeight
    contentWidth: width
    boundsBehavior: Flickable.StopAtBounds
    interactive: contentHeight > height
    clip: interactive
}
