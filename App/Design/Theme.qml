pragma Singleton
pragma ComponentBehavior: Bound

import QtQuick

/// Colors, fonts, shadows, lengths and durations of the screens, named by role. Lengths are in points
/// (device-independent pixels), durations in milliseconds.
///
/// The app sets the first four properties when the system's appearance changes; the others depend on them.
QtObject {
    id: root

    property bool isDark: false
    property bool isMotionReduced: false
    property bool isContrastHigh: false
    /// The user's text size: 1 is normal; values above 2 count as 2.
    property real textScale: 1
    /// Whether content may grow beyond its normal size, so that larger text fits.
    readonly property bool isTextLarge: type.scale > 1

    readonly property Colors color: Colors {
        isDark: root.isDark
        isContrastHigh: root.isContrastHigh
    }
    /// Colors for items on a background that is light in dark appearance, too.
    readonly property Colors lightColor: Colors {
        isDark: false
        isContrastHigh: root.isContrastHigh
    }
    readonly property TypeScale type: TypeScale {
        scale: Math.min(root.textScale, 2)
    }
    readonly property Motion motion: Motion {
        isReduced: root.isMotionReduced
    }
    readonly property Shadows shadow: Shadows {
        brand: root.lightColor.orangeShadow
    }
    readonly property Radii radius: Radii {}
    readonly property Lines line: Lines {}

    /// Between neighbors.
    readonly property real spacing: 8
    /// Between content and the edge around it.
    readonly property real padding: 16
    /// Minimum width and height of a touch or pointer target.
    readonly property real minimumTarget: 44
    /// Windows at least this wide use the regular layout, others the compact one.
    readonly property real regularWidth: 700
    /// Opacity of pressed text buttons.
    readonly property real pressedOpacity: 0.4
    /// How much smaller the text of a card's name or a button may become before it wraps.
    readonly property real minimumNameScale: 0.8
    /// How much smaller the text of a card's description may become before it is cut.
    readonly property real minimumCaptionScale: 0.75
    /// Side length of a symbol per point of the adjacent text.
    readonly property real symbolSidePerPoint: 1.2

    component Colors: QtObject {
        required property bool isDark
        required property bool isContrastHigh

        /// Text and symbols.
        readonly property color label: isDark ? "#ffffff" : "#000000"
        readonly property color textSecondary: Qt.alpha(label, isContrastHigh ? 0.85 : 0.6)
        readonly property color textOnOrange: "#ffffff"

        readonly property color orange: isContrastHigh ? (isDark ? "#ffb340" : "#a34700") : isDark ? "#ff9f0a" : "#ff9500"
        /// The light end of a gradient.
        readonly property color orangeSoft: Qt.alpha(orange, isContrastHigh ? 1 : 0.8)
        /// Borders.
        readonly property color orangeLine: Qt.alpha(orange, isContrastHigh ? 1 : 0.3)
        readonly property color orangeShadow: Qt.alpha(orange, 0.3)
        /// Backgrounds of orange symbols and of the warning strip.
        readonly property color orangeTint: Qt.alpha(orange, 0.1)
        /// Screen backgrounds.
        readonly property color orangeMist: Qt.alpha(orange, 0.05)

        readonly property color gray: !isContrastHigh ? "#8e8e93" : isDark ? "#b4b4b9" : "#5a5a5f"
        readonly property color grayTint: Qt.alpha(gray, 0.1)
        readonly property color grayMist: Qt.alpha(gray, 0.05)

        /// Text and symbols that act as a button.
        readonly property color tint: isContrastHigh ? (isDark ? "#7cc0ff" : "#0040a0") : isDark ? "#0a84ff" : "#0060cc"
        readonly property color separator: Qt.alpha(label, isContrastHigh ? 0.5 : 0.15)
        readonly property color scrollIndicator: Qt.alpha(label, isContrastHigh ? 0.7 : 0.35)
        readonly property color focusRing: isDark ? "#66b2ff" : "#004a9f"
        readonly property color focusRingInner: isDark ? "#000000" : "#ffffff"

        readonly property color systemBackground: isDark ? "#000000" : "#ffffff"
    }

    component TypeScale: QtObject {
        required property real scale

        readonly property font largeTitleBold: face(34, Font.Bold)
        readonly property font title2: face(22, Font.Normal)
        readonly property font title2Bold: face(22, Font.Bold)
        readonly property font title3: face(20, Font.Normal)
        readonly property font headline: face(17, Font.DemiBold)
        readonly property font body: face(17, Font.Normal)
        readonly property font subheadline: face(15, Font.Normal)
        readonly property font caption: face(12, Font.Normal)
        readonly property font caption2: face(11, Font.Normal)

        /// Returns a font with tighter letter spacing at larger sizes, as Inter's designer recommends. Without
        /// Inter, the system picks a font. Arabic has no letter spacing, because its letters are joined.
        function face(points: real, weight: int): font {
            const isJoined = Application.layoutDirection === Qt.RightToLeft;
            const tracking = isJoined ? 0 : 0.185 * Math.exp(-0.1745 * points) - 0.0223;
            return Qt.font({
                family: "Inter",
                pixelSize: Math.round(points * scale),
                weight: weight,
                letterSpacing: points * scale * tracking
            });
        }
    }

    /// Durations are 0 with reduced motion.
    component Motion: QtObject {
        required property bool isReduced

        readonly property int press: isReduced ? 0 : 100
        readonly property int push: isReduced ? 0 : 350
        readonly property int rootChange: isReduced ? 0 : 500
        /// How long a scroll indicator stays after scrolling, also with reduced motion.
        readonly property int indicatorPause: 1000
    }

    component Shadows: QtObject {
        id: shadows

        /// For items on a background that is always light.
        required property color brand

        readonly property ShadowStyle none: ShadowStyle {}
        readonly property ShadowStyle card: ShadowStyle {
            color: Qt.alpha("#000000", 0.15)
            blurRadius: 12
            offset: Qt.point(0, 6)
        }
        readonly property ShadowStyle logo: ShadowStyle {
            color: shadows.brand
            blurRadius: 10
            offset: Qt.point(0, 5)
        }
        readonly property ShadowStyle button: ShadowStyle {
            color: shadows.brand
            blurRadius: 8
            offset: Qt.point(0, 4)
        }
        /// A screen that slides over another.
        readonly property ShadowStyle floating: ShadowStyle {
            color: Qt.alpha("#000000", 0.2)
            blurRadius: 24
            offset: Qt.point(0, 10)
        }
    }

    component Radii: QtObject {
        readonly property real strip: 8
        readonly property real card: 16
    }

    component Lines: QtObject {
        readonly property real thin: 1
        readonly property real border: 1.5
        readonly property real focusRing: 3
        /// The ring's inner color.
        readonly property real focusRingInner: 2
    }
}
