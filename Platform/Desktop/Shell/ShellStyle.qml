pragma Singleton

import QtQuick
import Quorvane.Shell

/// The style of the system's user interface: colors, fonts, lengths (in points) and durations (in milliseconds) by
/// role.
QtObject {
    id: root

    /// Provides the user's appearance settings; initially null.
    property ShellModel shell: null
    readonly property bool isDark: shell?.isDark ?? false
    readonly property bool isMotionReduced: shell?.isMotionReduced ?? false
    readonly property bool isContrastHigh: shell?.isContrastHigh ?? false
    readonly property real textScale: shell?.textScale ?? 1
    /// Whether the item with the focus shows a ring.
    readonly property bool isFocusShown: shell?.isKeyboardInUse ?? false

    readonly property color label: isDark ? "#f5f5f7" : "#1c1c1e"
    readonly property color labelSecondary: isContrastHigh ? (isDark ? "#d4d4da" : "#3c3c43") : isDark ? "#a9a9b0" : "#62626a"
    /// Button text.
    readonly property color tint: isContrastHigh ? (isDark ? "#a6d2ff" : "#003a85") : isDark ? "#6cb4ff" : "#0060cc"
    readonly property color panel: isDark ? "#2a2a2c" : "#fafafc"
    readonly property color sheet: isDark ? "#1e1e20" : "#f2f2f6"
    readonly property color row: isDark ? "#2c2c2e" : "#ffffff"
    readonly property color button: isDark ? "#3d3d41" : "#e9e9ef"
    readonly property color buttonPressed: isDark ? "#48484d" : "#dcdce4"
    readonly property color separator: isContrastHigh ? outline : isDark ? "#414145" : "#e0e0e5"
    readonly property color outline: isContrastHigh ? (isDark ? "#99ffffff" : "#80000000") : isDark ? "#28ffffff" : "#14000000"
    readonly property color shadow: isDark ? "#80000000" : "#26000000"
    /// Covers the content below a modal overlay.
    readonly property color scrim: isDark ? "#99000000" : "#59000000"
    readonly property color switchOn: isContrastHigh && !isDark ? "#1b7334" : isDark ? "#30a652" : "#2a9d4a"
    readonly property color switchOff: isContrastHigh ? "#66666c" : isDark ? "#7c7c82" : "#8e8e94"
    readonly property color knob: "#ffffff"
    readonly property color focusRing: isDark ? "#66b2ff" : "#0064d2"

    readonly property font title: face(17, Font.DemiBold)
    readonly property font body: face(17, Font.Normal)
    readonly property font emphasized: face(17, Font.Medium)
    readonly property font note: face(14, Font.Normal)
    readonly property font bannerTitle: face(15, Font.DemiBold)
    readonly property font bannerBody: face(15, Font.Normal)

    readonly property real spacing: 8
    readonly property real padding: 16
    /// The minimum size of touch and mouse targets.
    readonly property real minimumTarget: 44
    readonly property real rowHeight: 52
    readonly property real buttonRadius: 12
    readonly property real rowRadius: 14
    readonly property real panelRadius: 20
    readonly property real focusRingWidth: 3
    /// From this window width on, sheets are centered.
    readonly property real regularWidth: 700
    readonly property real panelWidth: 300
    readonly property real sheetWidth: 540
    readonly property real bannerWidth: 400

    readonly property int fade: isMotionReduced ? 0 : 200
    readonly property int slide: isMotionReduced ? 0 : 300

    function face(points: real, weight: int): font {
        return Qt.font({
            family: "Inter",
            pixelSize: Math.round(points * textScale),
            weight: weight,
            // Spacing would separate or overlap the joined letters of Arabic.
            letterSpacing: Application.layoutDirection === Qt.RightToLeft ? 0 : -0.01 * points * textScale
        });
    }
}
