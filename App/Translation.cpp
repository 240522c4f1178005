#include "App/Translation.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QLocale>
#include <QTranslator>

#include <memory>

namespace App {

namespace {

/// Whether a font has the letters of `language`. Looks only for those that Inter does not have.
bool hasFont(QLocale::Language language)
{
    switch (language) {
    case QLocale::Arabic:
        return QFontDatabase::writingSystems().contains(QFontDatabase::Arabic);
    case QLocale::Japanese:
        return QFontDatabase::writingSystems().contains(QFontDatabase::Japanese);
    default:
        return true;
    }
}

} // namespace

QString installTranslation(QGuiApplication& application, const QStringList& languages)
{
    for (const QString& tag : languages) {
        const QLocale::Language language = QLocale(tag).language();
        // A language after English is not preferred to it. Qt also lists "C" after an unknown language.
        if (language == QLocale::English || languages.front() == u"C")
            break;
        QString code = QLocale::languageToCode(language);
        auto translator = std::make_unique<QTranslator>(&application);
        if (!translator->load(QStringLiteral(":/Quorvane/Translations/%1.qm").arg(code)) ||
            !hasFont(language))
            continue;
        QCoreApplication::installTranslator(translator.release());
        QGuiApplication::setLayoutDirection(QLocale(language).textDirection());
        return code;
    }
    return {};
}

} // namespace App
