import QtQuick
import Quorvane.App

DetailScreen {
    id: root

    readonly property SSODetailViewModel view: SSODetailViewModel {}

    symbol: view.symbol
    title: view.title
    description: view.description
}
