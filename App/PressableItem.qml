pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// A button without a look of its own: handles touch, pointer, keyboard and screen reader, and draws a focus ring.
FocusScope {
    id: root

    required property string accessibleName
    property string accessibleDescription: ""
    property real cornerRadius: 0
    property bool isFocusRingInside: false
    property bool isOnLightBackground: false
    readonly property bool isPressed: tap.pressed || isKeyPressed
    property bool isKeyPressed: false

    signal clicked

    /// Takes the focus in its scope as well, so that it returns here from what the click opens.
    function press() {
        if (!enabled)
            return;
        focus = true;
        clicked();
    }

    activeFocusOnTab: enabled
    Accessible.role: Accessible.Button
    Accessible.name: accessibleName
    Accessible.description: accessibleDescription
    Accessible.focusable: true
    Accessible.onPressAction: press()
    Keys.onPressed: event => {
        if (event.isAutoRepeat || ![Qt.Key_Space, Qt.Key_Return, Qt.Key_Enter].includes(event.key))
            return;
        isKeyPressed = true;
        event.accepted = true;
    }
    Keys.onReleased: event => {
        if (event.isAutoRepeat || !isKeyPressed)
            return;
        isKeyPressed = false;
        event.accepted = true;
        clicked();
    }
    onActiveFocusChanged: isKeyPressed = false

    TapHandler {
        id: tap

        onTapped: root.press()
    }

    HoverHandler {
        cursorShape: Qt.PointingHandCursor
    }

    // At most one item.
    Repeater {
        model: root.activeFocus && FocusVisibility.isShown ? 1 : 0

        FocusRing {
            objectName: "focusRing"
            cornerRadius: root.cornerRadius
            isInside: root.isFocusRingInside
            isOnLightBackground: root.isOnLightBackground
        }
    }
}
