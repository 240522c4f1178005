// A Qt plugin that lets a `DrivenWindow` in another process operate the window of this process. Each
// connection to its socket carries one command, a line of JSON, and one reply, a line after the command has
// ended:
//
//     {"action": "tap", "item": "welcome.getStarted"}     {} or {"error": "it is not visible; ..."}
//
// Items are identified by `objectName`; of several visible items with the same name, the last in the tree is
// used. Everything runs on the main thread, which processes events while a command waits.

#include <QGenericPlugin>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMap>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <functional>
#include <stdexcept>

namespace {

constexpr int timeoutMilliseconds = 20'000;
/// How many times in a row an item or the picture must be unchanged to count as still. `QTest::qWaitFor`
/// checks every 10 ms and runs the event loop in between; an animation advances every 16 ms.
constexpr int stillCheckCount = 5;

/// `item` is null if it is not visible.
struct VisibleItem {
    const QQuickItem* item = nullptr;
    /// The part that is inside the window and not clipped, in points of the window.
    QRectF visibleRect;
    double opacity = 1;

    bool operator==(const VisibleItem& other) const = default;
};
using ItemsByName = QMap<QString, VisibleItem>;

QQuickWindow* visibleWindow()
{
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        auto* quickWindow = qobject_cast<QQuickWindow*>(window);
        if (quickWindow != nullptr && quickWindow->isVisible())
            return quickWindow;
    }
    return nullptr;
}

/// Collects the items that are visible in `clip`. An item covered by others counts as visible.
void collect(const QQuickItem& item, const QRectF& clip, double opacityAbove, ItemsByName& found)
{
    const double opacity = opacityAbove * item.opacity();
    if (!item.isVisible() || opacity <= 0)
        return;
    const QRectF rect = clip & item.mapRectToScene({0, 0, item.width(), item.height()});
    if (!item.objectName().isEmpty() && !rect.isEmpty())
        found[item.objectName()] = {&item, rect, opacity};
    for (const QQuickItem* child : item.childItems())
        collect(*child, item.clip() ? rect : clip, opacity, found);
}

ItemsByName visibleItems()
{
    ItemsByName items;
    if (const QQuickWindow* window = visibleWindow())
        collect(*window->contentItem(), QRectF(QPointF(), window->size()), 1, items);
    return items;
}

void waitUntil(const std::function<bool()>& isReached, const QString& problem)
{
    if (!QTest::qWaitFor(isReached, timeoutMilliseconds))
        throw std::runtime_error(
            (problem + "; visible items: " + visibleItems().keys().join(", ")).toStdString());
}

/// Waits until `observe` returns the same value, other than a null value, several times in a row.
template <typename Value>
Value waitUntilStill(const std::function<Value()>& observe, const QString& problem)
{
    Value last;
    int unchangedCount = 0;
    const auto isStill = [&] {
        const Value now = observe();
        unchangedCount = now != Value() && now == last ? unchangedCount + 1 : 0;
        last = now;
        return unchangedCount >= stillCheckCount;
    };
    waitUntil(isStill, problem);
    return last;
}

VisibleItem waitFor(const QString& name)
{
    const auto enabledItem = [&name] {
        const VisibleItem found = visibleItems().value(name);
        return found.item != nullptr && found.item->isEnabled() ? found : VisibleItem();
    };
    return waitUntilStill<VisibleItem>(enabledItem, "it is not visible, is disabled, or keeps moving");
}

void tap(const QString& name)
{
    const VisibleItem target = waitFor(name);
    QTest::mouseClick(target.item->window(), Qt::LeftButton, {}, target.visibleRect.center().toPoint());
}

void resize(QSize size)
{
    waitUntil([] { return visibleWindow() != nullptr; }, "no window is visible");
    visibleWindow()->resize(size);
}

void close()
{
    waitUntil([] { return visibleWindow() != nullptr; }, "no window is visible");
    visibleWindow()->close();
}

void grab(const QString& file)
{
    const auto picture = [] {
        QQuickWindow* window = visibleWindow();
        return window == nullptr ? QImage() : window->grabWindow();
    };
    if (!waitUntilStill<QImage>(picture, "no window is visible, or something keeps moving").save(file, "PNG"))
        throw std::runtime_error("the file cannot be written");
}

/// Returns the reply.
QJsonObject perform(const QJsonObject& command)
{
    const QString action = command["action"].toString();
    const QString item = command["item"].toString();
    if (action == "waitFor")
        waitFor(item);
    else if (action == "waitUntilGone")
        waitUntil([&item] { return !visibleItems().contains(item); }, "it stays visible");
    else if (action == "tap")
        tap(item);
    else if (action == "text")
        return {{"text", waitFor(item).item->property("text").toString()}};
    else if (action == "resize")
        resize({command["width"].toInt(), command["height"].toInt()});
    else if (action == "close")
        close();
    else if (action == "grab")
        grab(command["file"].toString());
    else
        throw std::runtime_error("unknown action");
    return {};
}

void serve(QLocalSocket& socket)
{
    if (!socket.canReadLine())
        return;
    QJsonObject reply;
    try {
        reply = perform(QJsonDocument::fromJson(socket.readLine()).object());
    } catch (const std::exception& error) {
        reply["error"] = error.what();
    }
    socket.write(QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n');
    QObject::connect(&socket, &QLocalSocket::disconnected, &socket, &QObject::deleteLater);
    socket.disconnectFromServer();
}

} // namespace

class WindowDriver final : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "WindowDriver.json")

public:
    QObject* create(const QString& /*name*/, const QString& /*parameters*/) override
    {
        auto* server = new QLocalServer;
        const QString socketFile = qEnvironmentVariable("QUORVANE_WINDOW_DRIVER");
        QLocalSocket probe;
        probe.connectToServer(socketFile);
        if (probe.waitForConnected())
            return server; // The parent process already uses the socket.
        QLocalServer::removeServer(socketFile);
        server->setSocketOptions(QLocalServer::UserAccessOption);
        connect(server, &QLocalServer::newConnection, server, [server] {
            while (QLocalSocket* socket = server->nextPendingConnection())
                connect(socket, &QLocalSocket::readyRead, socket, [socket] { serve(*socket); });
        });
        if (!server->listen(socketFile))
            qWarning("The window driver cannot listen on %s: %s", qUtf8Printable(socketFile),
                     qUtf8Printable(server->errorString()));
        return server;
    }
};

#include "WindowDriver.moc"
