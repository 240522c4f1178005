#include "Platform/Desktop/GuiApplication.h"

#include "Platform/ExitCode.h"

#include <cstdio>
#include <cstdlib>

namespace Platform::Desktop {

namespace {

constexpr const char* platformVariable = "QT_QPA_PLATFORM";

/// Qt aborts if it cannot connect to the display. Exits with a helpful message and an exit code instead.
void handleStartupMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type != QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
        return;
    }
    std::fprintf(stderr,
                 "quorvane-mdm: the display cannot be opened; check DISPLAY and WAYLAND_DISPLAY, or set "
                 "QT_QPA_PLATFORM=offscreen to run without one\n");
    std::_Exit(unavailable);
}

} // namespace

std::unique_ptr<QGuiApplication> makeGuiApplication(int& argc, char** argv, Display display)
{
    const bool isPlatformChosen = !qEnvironmentVariableIsEmpty(platformVariable);
    QByteArray platforms;
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        platforms += "wayland;";
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        platforms += "xcb;";
    if (display == Display::needed && !isPlatformChosen && platforms.isEmpty())
        throw NoDisplay("there is no display: set DISPLAY or WAYLAND_DISPLAY, or "
                        "QT_QPA_PLATFORM=offscreen to run without one");
    const bool mayFallBack = display == Display::optional && !isPlatformChosen;
    // Qt takes the first platform whose display can be opened.
    if (mayFallBack)
        qputenv(platformVariable, platforms + "offscreen");
    // No window takes text. Besides, the input context of Qt 6.4 crashes at a change of focus where a Wayland
    // compositor has no input device.
    qputenv("QT_IM_MODULE", "none");
    const auto previousHandler = qInstallMessageHandler(handleStartupMessage);
    auto application = std::make_unique<QGuiApplication>(argc, argv);
    qInstallMessageHandler(previousHandler);
    if (mayFallBack)
        qunsetenv(platformVariable);
    return application;
}

bool hasDisplay()
{
    return QGuiApplication::platformName() != u"offscreen" || !qEnvironmentVariableIsEmpty(platformVariable);
}

} // namespace Platform::Desktop
