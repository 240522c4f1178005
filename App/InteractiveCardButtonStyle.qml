import QtQuick
import Quorvane.Design

/// Press feedback of a card: its content shrinks slightly around its center.
Item {
    property bool isPressed: false

    scale: isPressed ? 0.95 : 1

    Behavior on scale {
        EaseInOut {}
    }
}
