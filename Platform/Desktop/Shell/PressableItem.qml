import QtQuick
import Quorvane.Shell

/// Something to press: by finger, pointer, keyboard or screen reader. What it looks like is up to its content.
PressArea {
    id: root

    required property string accessibleName
    property real cornerRadius: 0
    /// Of the ring that shows the focus.
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
