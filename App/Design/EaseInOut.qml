import QtQuick

/// A change of a number that starts and ends gently.
NumberAnimation {
    duration: Theme.motion.press
    easing.type: Easing.BezierSpline
    easing.bezierCurve: [0.42, 0, 0.58, 1, 1, 1]
}
