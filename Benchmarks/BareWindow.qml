import QtQuick

Text {
    text: "Dashboard"
}
