import QtQuick
import Quorvane.Design

/// The feedback of a card under the finger: what it holds shrinks a little about its centre.
Item {
    property bool isPressed: false

    scale: isPressed ? 0.95 : 1

    Behavior on scale {
        EaseInOut {}
    }
}
