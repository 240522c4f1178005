#include "Tools/Tour/WindowDriver/Server.h"

#include "Tools/Tour/WindowDriver/Conversation.h"

#include <QLocalSocket>

#include <chrono>

namespace WindowDriver {

namespace {

bool isServed(const QString& socketFile)
{
    constexpr std::chrono::milliseconds patience{1000};
    QLocalSocket probe;
    probe.connectToServer(socketFile);
    return probe.waitForConnected(static_cast<int>(patience.count()));
}

} // namespace

Server::Server(const QString& socketFile)
{
    if (isServed(socketFile))
        return;
    QLocalServer::removeServer(socketFile);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &Server::accept);
    if (!m_server.listen(socketFile))
        qWarning("Nobody can drive the window: %s: %s", qUtf8Printable(socketFile),
                 qUtf8Printable(m_server.errorString()));
}

void Server::accept()
{
    while (QLocalSocket* socket = m_server.nextPendingConnection())
        new Conversation(*socket, *this);
}

} // namespace WindowDriver
