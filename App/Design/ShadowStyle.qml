import QtQuick

/// The look of a shadow; the default draws no shadow.
QtObject {
    property color color: "transparent"
    property real blurRadius: 0
    property point offset: Qt.point(0, 0)
}
