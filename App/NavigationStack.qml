pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App

/// A base screen and, while `destination` is set, a screen that slides over it. The back button, Escape, the back key and
/// a swipe from the opposite edge request to go back.
FocusScope {
    id: root

    default property alias content: base.data
    /// URL of a screen that has a `presentationMode` property; empty for none.
    property string destination
    property NavigationDestination overlay: null

    /// Emitted when the user goes back; clear `destination` in response.
    signal backRequested

    onDestinationChanged: {
        if (destination !== "") {
            overlays.isLoaded = true;
            overlay.show(destination);
        } else if (overlay !== null) {
            overlay.hide();
            base.forceActiveFocus();
        }
    }

    PresentationMode {
        id: mode

        onDismissed: root.backRequested()
    }

    FocusScope {
        id: base

        anchors.fill: parent
        focus: true
        // Accepts taps until it is fully covered.
        visible: root.overlay === null || root.overlay.offset > 0
    }

    // Created with the first destination, so that it does not delay the first frame.
    Repeater {
        id: overlays

        property bool isLoaded: false

        model: isLoaded ? 1 : 0

        NavigationDestination {
            presentationMode: mode
            onBackRequested: root.backRequested()
            Component.onCompleted: root.overlay = this
        }
    }
}
