pragma Singleton

import QtQuick

/// Whether the item with the focus shows it: while the user works with the keyboard.
QtObject {
    property bool isShown: false
}
