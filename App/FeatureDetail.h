#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <utility>

namespace App {

/// The content of a detail screen.
class FeatureDetail : public QObject {
    Q_OBJECT
    QML_ANONYMOUS
    Q_PROPERTY(QString symbol MEMBER m_symbol CONSTANT FINAL)
    Q_PROPERTY(QString title MEMBER m_title CONSTANT FINAL)
    Q_PROPERTY(QString description MEMBER m_description CONSTANT FINAL)

protected:
    FeatureDetail(const char* symbol, QString title, QString description, QObject* parent)
        : QObject(parent),
          m_symbol(QString::fromLatin1(symbol)),
          m_title(std::move(title)),
          m_description(std::move(description))
    {}

private:
    const QString m_symbol;
    const QString m_title;
    const QString m_description;
};

} // namespace App
