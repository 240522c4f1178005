#include "Tools/Tour/WindowDriver/Server.h"

#include <QGenericPlugin>

namespace WindowDriver {

/// Lets a process of ours act on the window of the program that it starts: the environment has Qt load this
/// plugin, and names the socket. Without a socket it does nothing.
class WindowDriverPlugin final : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "WindowDriver.json")

public:
    // The socket does not come with the name of the plugin, where a comma would end it.
    QObject* create(const QString& /*name*/, const QString& /*settings*/) override
    {
        const QString socketFile = qEnvironmentVariable("QUORVANE_WINDOW_DRIVER");
        return socketFile.isEmpty() ? new QObject : new Server(socketFile);
    }
};

} // namespace WindowDriver

#include "WindowDriverPlugin.moc"
