#pragma once

#include <QStringList>

class QGuiApplication;

namespace App {

/// Shows the app in the first of `languages` that it has a translation for, or in English, the language of
/// the source code, if English comes first or no language has a translation. Skips a language if no font has
/// its letters. Also sets the layout direction.
///
/// `languages` are BCP 47 tags in the order of the user's preference, as `QLocale::uiLanguages` returns them.
/// Returns the chosen language, such as "de"; empty for English, for which no translator is installed. Call
/// it once, before any translated string is read. The translator is owned by `application`. Threads: main.
QString installTranslation(QGuiApplication& application, const QStringList& languages);

} // namespace App
