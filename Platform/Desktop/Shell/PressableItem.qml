import QtQuick
import Quorvane.Shell

/// An item to press by touch, mouse, keyboard or screen reader. Its content determines its appearance.
PressArea {
    id: root

    required property string accessibleName
    property real cornerRadius: 0
    /// The gap of the focus ring.
    property real focusGap: 2

    signal triggered

    activeFocusOnTab: true
    onTapped: triggered()
    Accessible.role: Accessible.Button
    Accessible.name: accessibleName
    Accessible.focusable: true
    Accessible.onPressAction: triggered()
    Keys.onPressed: event => {
        if (![Qt.Key_Space, Qt.Key_Return, Qt.Key_Enter].includes(event.key))
            return;
        event.accepted = true;
        if (!event.isAutoRepeat)
            triggered();
    }

    FocusRing {
        z: 1
        visible: root.activeFocus && ShellStyle.isFocusShown
        cornerRadius: root.cornerRadius
        gap: root.focusGap
    }
}
