#pragma once

#include "App/Design/PatchedItem.h"

#include <QColor>
#include <QString>

namespace App::Design {

/// Draws a symbol in one color at the item's size, for `Symbol.qml`.
///
/// Symbols with the same look share one picture. Errors: an unknown name logs a warning and draws nothing.
class SymbolPicture : public App::Design::PatchedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString name MEMBER m_name NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    /// Whether arrows and chevrons are mirrored.
    Q_PROPERTY(bool isRightToLeft MEMBER m_isRightToLeft NOTIFY appearanceChanged FINAL)

protected:
    [[nodiscard]] Patches makePatches() const override;

private:
    QString m_name;
    QColor m_color;
    bool m_isRightToLeft = false;
};

} // namespace App::Design
