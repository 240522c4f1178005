import QtQuick
import Quorvane.Design

/// A panel with a shadow.
Panel {
    id: root

    property ShadowStyle shadow: Theme.shadow.none

    Shadow {
        smooth: root.smooth
        style: root.shadow
        cornerRadius: root.radius
    }
}
