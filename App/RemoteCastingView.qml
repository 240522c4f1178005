import QtQuick
import Quorvane.App

DetailScreen {
    id: root

    readonly property RemoteCastingViewModel view: RemoteCastingViewModel {
        presentationMode: root.presentationMode
    }

    symbol: view.symbol
    title: view.title
    description: view.description
}
