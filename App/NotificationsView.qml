import QtQuick
import Quorvane.App

DetailScreen {
    id: root

    readonly property NotificationsViewModel view: NotificationsViewModel {
        presentationMode: root.presentationMode
    }

    symbol: view.symbol
    title: view.title
    description: view.description
}
