#include "App/Translation.h"

#include <QGuiApplication>
#include <QLocale>
#include <QTranslator>

#include <memory>

namespace App {

QString installTranslation(QGuiApplication& application, const QStringList& languages)
{
    for (const QString& tag : languages) {
        const QLocale::Language language = QLocale(tag).language();
        // A language after English is not preferred to it.
        if (language == QLocale::English || language == QLocale::C)
            break;
        const QString code = QLocale::languageToCode(language);
        auto translator = std::make_unique<QTranslator>(&application);
        if (!translator->load(QStringLiteral(":/Quorvane/Translations/%1.qm").arg(code)))
            continue;
        QCoreApplication::installTranslator(translator.release());
        QGuiApplication::setLayoutDirection(QLocale(language).textDirection());
        return code;
    }
    return {};
}

} // namespace App
