pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The window's root: the welcome screen until the user taps "Get Started", then the dashboard.
FocusScope {
    id: root

    required property ContentViewModel view
    required property AppearanceModel appearance
    readonly property bool isRegular: width >= Theme.regularWidth

    focus: true
    LayoutMirroring.enabled: Application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    Binding {
        target: Theme
        property: "isDark"
        value: root.appearance.isDark
    }

    Binding {
        target: Theme
        property: "isMotionReduced"
        value: root.appearance.isMotionReduced
    }

    Binding {
        target: Theme
        property: "isContrastHigh"
        value: root.appearance.isContrastHigh
    }

    Binding {
        target: Theme
        property: "textScale"
        value: root.appearance.textScale
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.color.systemBackground
    }

    // A Repeater with at most one item, because a Loader cannot create bound components.
    Repeater {
        model: root.view.dashboard !== null ? 1 : 0

        MainDashboardView {
            anchors.fill: parent
            focus: !root.view.showWelcome
            view: root.view.dashboard
            isRegular: root.isRegular
        }
    }

    Repeater {
        id: welcome

        /// False after the screen has faded out.
        property bool isLoaded: true

        model: root.view.welcome !== null && isLoaded ? 1 : 0

        WelcomeView {
            anchors.fill: parent
            focus: root.view.showWelcome
            // No input while fading out.
            enabled: root.view.showWelcome
            opacity: root.view.showWelcome ? 1 : 0
            view: root.view.welcome
            isRegular: root.isRegular
            onOpacityChanged: {
                if (opacity === 0)
                    welcome.isLoaded = false;
            }

            Behavior on opacity {
                EaseInOut {
                    duration: Theme.motion.rootChange
                }
            }
        }
    }
}
