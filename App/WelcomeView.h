#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <string_view>

namespace Core {
class Logger;
}
namespace Platform {
class UserDefaults;
}

namespace App {

/// The screen that greets at the first launch. Threads: main. Ownership: refers to what it is built from.
class WelcomeView final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(WelcomeViewModel)
    QML_UNCREATABLE("made by ContentView")

public:
    /// Of the standard defaults: true once "Get Started" was tapped.
    static constexpr std::string_view hasLaunchedBeforeKey = "hasLaunchedBefore";

    WelcomeView(Core::Logger& logger, Platform::UserDefaults& defaults)
        : m_logger(logger), m_defaults(defaults)
    {}

    /// The first launch is remembered before anything moves, whatever becomes of the process.
    Q_INVOKABLE void getStarted();

Q_SIGNALS:
    /// This screen is to make way for the dashboard.
    void finished();

private:
    Core::Logger& m_logger;
    Platform::UserDefaults& m_defaults;
};

} // namespace App
