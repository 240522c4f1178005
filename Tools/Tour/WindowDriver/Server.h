#pragma once

#include <QLocalServer>
#include <QObject>

namespace WindowDriver {

/// Listens on a socket that only the same user can open; every connection is a `Conversation`.
///
/// Where another process already listens it stays out of the way: programs that the driven one starts inherit
/// its environment. Threads: main. Errors: a socket that cannot be made is a warning of Qt's.
class Server final : public QObject {
    Q_OBJECT

public:
    explicit Server(const QString& socketFile);

private:
    void accept();

    QLocalServer m_server;
};

} // namespace WindowDriver
