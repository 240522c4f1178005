import QtQuick

/// A number animation with an ease-in-out curve.
NumberAnimation {
    duration: Theme.motion.press
    easing.type: Easing.BezierSpline
    easing.bezierCurve: [0.42, 0, 0.58, 1, 1, 1]
}
