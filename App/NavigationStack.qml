pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App

/// A screen and, while there is a destination, the screen that slides over it from the right. It is left by its back
/// button, by Escape or the back key, and by a swipe from the left edge.
FocusScope {
    id: root

    default property alias content: underneath.data
    /// The document of a screen with a presentation mode; empty for none.
    property string destination
    property NavigationDestination shownOver: null

    /// The user wants the destination to go.
    signal backRequested

    onDestinationChanged: {
        if (destination !== "") {
            over.isWanted = true;
            shownOver.show(destination);
        } else if (shownOver !== null) {
            shownOver.hide();
            underneath.forceActiveFocus();
        }
    }

    PresentationMode {
        id: mode

        onDismissed: root.backRequested()
    }

    FocusScope {
        id: underneath

        anchors.fill: parent
        focus: true
        // Taps reach it until it is covered.
        visible: root.shownOver === null || root.shownOver.offset > 0
    }

    // Made for the first destination: the first frame is not to wait for it.
    Repeater {
        id: over

        property bool isWanted: false

        model: isWanted ? 1 : 0

        NavigationDestination {
            presentationMode: mode
            onBackRequested: root.backRequested()
            Component.onCompleted: root.shownOver = this
        }
    }
}
