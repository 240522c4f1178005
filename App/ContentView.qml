pragma ComponentBehavior: Bound

import QtQuick
import Quorvane.App
import Quorvane.Design

/// The root of the window: the welcome screen until "Get Started", the dashboard from then on.
FocusScope {
    id: root

    required property ContentViewModel view
    required property AppearanceModel appearance
    readonly property bool isRegular: width >= Theme.regularWidth

    focus: true

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
        property: "textScale"
        value: root.appearance.textScale
    }

    PointHandler {
        onActiveChanged: FocusVisibility.isShown = false
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.color.systemBackground
    }

    // One or none: a loader cannot make bound components.
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

        /// Stays until it has faded.
        property bool isWanted: true

        model: root.view.welcome !== null && isWanted ? 1 : 0

        WelcomeView {
            anchors.fill: parent
            focus: root.view.showWelcome
            // Nothing of it is to be reached while it fades.
            enabled: root.view.showWelcome
            opacity: root.view.showWelcome ? 1 : 0
            view: root.view.welcome
            isRegular: root.isRegular
            onOpacityChanged: {
                if (opacity === 0)
                    welcome.isWanted = false;
            }

            Behavior on opacity {
                EaseInOut {
                    duration: Theme.motion.rootChange
                }
            }
        }
    }
}
