// A minimal window with one line of text, as large as the app's: the peer of its screens.

#include <QGuiApplication>
#include <QQuickView>
#include <QScreen>

int main(int argc, char** argv)
{
    const QGuiApplication application(argc, argv);
    QQuickView window(QUrl(QStringLiteral("qrc:/BareWindow/BareWindow.qml")));
    window.resize(QSize(1024, 768).boundedTo(window.screen()->availableGeometry().size()));
    window.show();
    return QGuiApplication::exec();
}
