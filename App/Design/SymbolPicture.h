#pragma once

#include "App/Design/PatchedItem.h"

#include <QColor>
#include <QString>

namespace App::Design {

/// The picture of a symbol in one colour, as large as the item. For `Symbol`; screens use that.
///
/// Pictures are shared by all symbols that look the same. Errors: a name there is no file of is a warning,
/// and nothing is drawn.
class SymbolPicture : public App::Design::PatchedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString name MEMBER m_name NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    /// Left and right exchanged.
    Q_PROPERTY(bool isMirrored MEMBER m_isMirrored NOTIFY appearanceChanged FINAL)

protected:
    [[nodiscard]] Patches makePatches() const override;

private:
    QString m_name;
    QColor m_color;
    bool m_isMirrored = false;
};

} // namespace App::Design
