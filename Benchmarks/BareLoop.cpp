// A minimal process that waits in Qt's event loop without a window: the peer of the app without a window.

#include <QGuiApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    const QGuiApplication application(argc, argv);
    std::puts("waiting");
    std::fflush(stdout);
    return QGuiApplication::exec();
}
