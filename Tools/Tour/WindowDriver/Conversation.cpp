#include "Tools/Tour/WindowDriver/Conversation.h"

#include <QHash>
#include <QJsonDocument>

#include <chrono>
#include <stdexcept>
#include <utility>

namespace WindowDriver {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds pollInterval = 8ms;
constexpr qint64 usualTimeoutMilliseconds = 20'000;
/// An animation advances sixty times a second, whether or not frames are shown more often.
constexpr std::chrono::milliseconds restTime = 50ms;
/// The first frame that is shown after a change may have been begun before it.
constexpr std::int64_t freshFrameCount = 2;

[[noreturn]] void refuse(const QString& reason)
{
    throw std::runtime_error(reason.toStdString());
}

} // namespace

Conversation::Conversation(QLocalSocket& socket, QObject& parent) : QObject(&parent), m_socket(socket)
{
    m_socket.setParent(this);
    m_poll.setTimerType(Qt::PreciseTimer);
    connect(&m_poll, &QTimer::timeout, this, &Conversation::poll);
    connect(&m_socket, &QLocalSocket::readyRead, this, &Conversation::readNext);
    connect(&m_socket, &QLocalSocket::disconnected, this, &QObject::deleteLater);
    readNext();
}

void Conversation::readNext()
{
    if (m_isBusy || !m_socket.canReadLine())
        return;
    m_isBusy = true;
    m_request = QJsonDocument::fromJson(m_socket.readLine()).object();
    attempt([this] { perform(); });
}

void Conversation::perform()
{
    static const QHash<QString, Command> commands{
        {"showWindow", &Conversation::showWindow},
        {"waitFor", &Conversation::waitForItem},
        {"waitUntilGone", &Conversation::waitUntilGone},
        {"waitForProperty", &Conversation::waitForProperty},
        {"tap", &Conversation::tap},
        {"doubleTap", &Conversation::doubleTap},
        {"touchTap", &Conversation::touchTap},
        {"press", &Conversation::press},
        {"release", &Conversation::release},
        {"swipe", &Conversation::swipe},
        {"key", &Conversation::key},
        {"property", &Conversation::property},
        {"accessible", &Conversation::accessible},
        {"names", &Conversation::names},
        {"focus", &Conversation::focus},
        {"resize", &Conversation::resize},
        {"grab", &Conversation::grab},
        {"startFrames", &Conversation::startFrames},
        {"stopFrames", &Conversation::stopFrames},
    };
    const Command command = commands.value(m_request["do"].toString());
    if (command == nullptr)
        refuse("there is no such command");
    m_deadline = QDeadlineTimer(m_request["timeout"].toInteger(usualTimeoutMilliseconds), Qt::PreciseTimer);
    m_pose.reset();
    (this->*command)();
}

void Conversation::answer(const QJsonObject& result)
{
    m_isBusy = false;
    m_socket.write(QJsonDocument(result).toJson(QJsonDocument::Compact) + '\n');
    QMetaObject::invokeMethod(this, &Conversation::readNext, Qt::QueuedConnection);
}

void Conversation::attempt(const Action& action)
{
    try {
        action();
    } catch (const std::exception& error) {
        m_poll.stop();
        const QString about = m_request.contains("item") ? " '" + m_request["item"].toString() + "'" : "";
        QString text = m_request["do"].toString() + about + ": " + error.what();
        if (QQuickWindow* shown = visibleWindow())
            text += "; on view: " + namesOnView(*shown).join(", ");
        answer({{"error", text}});
    }
}

void Conversation::waitUntil(Condition isReached, Description expected, Action then)
{
    m_isReached = std::move(isReached);
    m_expected = std::move(expected);
    m_then = std::move(then);
    m_poll.start(pollInterval);
    poll();
}

void Conversation::poll()
{
    attempt([this] {
        if (m_isReached()) {
            m_poll.stop();
            // It may wait for something else.
            std::exchange(m_then, nullptr)();
        } else if (m_deadline.hasExpired()) {
            refuse(m_expected() + " in time");
        }
    });
}

void Conversation::whenReady(const std::function<void(QQuickItem&, QPoint)>& act)
{
    waitUntil([this] { return obstacle().isEmpty() && isAtRest(item()); },
              [this] {
                  const QString found = obstacle();
                  return found.isEmpty() ? "it does not come to rest" : found;
              },
              [this, act] { act(item(), visiblePart(item()).center().toPoint()); });
}

/// What keeps a user from the item; empty when nothing does.
QString Conversation::obstacle() const
{
    const QQuickWindow* shown = visibleWindow();
    if (shown == nullptr)
        return "no window is open";
    const QQuickItem* found = findItem(*shown, textArgument("item"));
    if (found == nullptr)
        return "there is no such item";
    if (visiblePart(*found).isEmpty())
        return "it is not on view";
    return found->isEnabled() ? QString() : "it is not enabled";
}

void Conversation::whenFresh(const Action& then)
{
    window();
    const std::int64_t frame = m_frames.count();
    waitUntil([this, frame] { return isFresh(frame); }, [] { return "no frame is shown"; }, then);
}

bool Conversation::isAtRest(const QQuickItem& item)
{
    const Pose pose(item);
    if (m_pose != pose) {
        m_pose = pose;
        m_poseAge.start();
        m_poseFrame = m_frames.count();
    }
    return isFresh(m_poseFrame) && m_poseAge.hasExpired(restTime.count());
}

bool Conversation::isFresh(std::int64_t sinceFrame)
{
    // A window at rest shows no frames unless asked.
    window().update();
    return m_frames.count() >= sinceFrame + freshFrameCount;
}

QQuickWindow& Conversation::window()
{
    QQuickWindow* shown = visibleWindow();
    if (shown == nullptr)
        refuse("no window is open");
    m_frames.follow(*shown);
    return *shown;
}

QQuickItem& Conversation::item()
{
    QQuickItem* found = findItem(window(), textArgument("item"));
    if (found == nullptr)
        refuse("there is no such item");
    return *found;
}

QString Conversation::textArgument(const char* name) const
{
    const QJsonValue value = m_request[QLatin1StringView(name)];
    if (!value.isString())
        refuse(QString("the text '%1' is missing").arg(name));
    return value.toString();
}

double Conversation::numberArgument(const char* name) const
{
    const QJsonValue value = m_request[QLatin1StringView(name)];
    if (!value.isDouble())
        refuse(QString("the number '%1' is missing").arg(name));
    return value.toDouble();
}

} // namespace WindowDriver
