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

/// The screen of the first launch. Threads: main. Ownership: the constructor's arguments must outlive it.
class WelcomeView final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(WelcomeViewModel)
    QML_UNCREATABLE("created by ContentView")

public:
    /// Key in the standard defaults; true after "Get Started" was tapped.
    static constexpr std::string_view hasLaunchedBeforeKey = "hasLaunchedBefore";

    WelcomeView(Core::Logger& logger, Platform::UserDefaults& defaults)
        : m_logger(logger), m_defaults(defaults)
    {}

    /// Records the first launch, then emits `finished()`.
    Q_INVOKABLE void getStarted();

Q_SIGNALS:
    /// Emitted when the dashboard should replace this screen.
    void finished();

private:
    Core::Logger& m_logger;
    Platform::UserDefaults& m_defaults;
};

} // namespace App
