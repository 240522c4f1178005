// As little as makes a process that waits for events of the system without a window: what the application is
// measured beside when a push started it.

#include <QGuiApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    const QGuiApplication application(argc, argv);
    std::puts("waiting");
    std::fflush(stdout);
    return QGuiApplication::exec();
}
