import QtQuick

/// How a shadow looks, whatever casts it; without properties there is none.
QtObject {
    property color color: "transparent"
    property real blurRadius: 0
    property point offset: Qt.point(0, 0)
}
