import QtQuick
import Quorvane.Design

/// A panel that casts a shadow.
Panel {
    id: root

    property ShadowStyle shadow: Theme.shadow.none

    Shadow {
        smooth: root.smooth
        style: root.shadow
        cornerRadius: root.radius
    }
}
