pragma Singleton

import QtQuick

/// Whether to draw the focus ring: true while the user works with the keyboard.
QtObject {
    property bool isShown: false
}
