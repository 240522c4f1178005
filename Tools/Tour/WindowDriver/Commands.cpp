#include "Tools/Tour/WindowDriver/Conversation.h"
#include "Tools/Tour/WindowDriver/Input.h"

#include <QJsonArray>

#include <algorithm>
#include <stdexcept>

// What the commands of a conversation do, each under its name.

namespace WindowDriver {

namespace {

double milliseconds(FrameMeter::Duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

QJsonObject sizeOf(const QQuickWindow& window)
{
    return {{"width", window.width()}, {"height", window.height()}};
}

} // namespace

void Conversation::showWindow()
{
    waitUntil([] { return visibleWindow() != nullptr; }, [] { return "no window is open"; },
              [this] { whenFresh([this] { answer(sizeOf(window())); }); });
}

void Conversation::waitForItem()
{
    whenReady([this](const QQuickItem& found, QPoint) {
        const QRectF geometry = geometryInWindow(found);
        answer({{"x", geometry.x()},
                {"y", geometry.y()},
                {"width", geometry.width()},
                {"height", geometry.height()}});
    });
}

void Conversation::waitUntilGone()
{
    const QString name = textArgument("item");
    waitUntil(
        [name] {
            const QQuickWindow* shown = visibleWindow();
            const QQuickItem* found = shown == nullptr ? nullptr : findItem(*shown, name);
            return found == nullptr || visiblePart(*found).isEmpty();
        },
        [] { return "it does not go"; }, [this] { answer(); });
}

void Conversation::waitForProperty()
{
    const QString name = textArgument("property");
    const QString value = textArgument("value");
    waitUntil(
        [this, name, value] {
            const QQuickWindow* shown = visibleWindow();
            QQuickItem* found = shown == nullptr ? nullptr : findItem(*shown, textArgument("item"));
            return found != nullptr && propertyText(*found, name) == value;
        },
        [this, name, value] {
            return QString("'%1' is '%2' and does not become '%3'")
                .arg(name, propertyText(item(), name), value);
        },
        [this] { answer(); });
}

void Conversation::tap()
{
    whenReady([this](const QQuickItem&, QPoint place) {
        pressMouse(window(), place);
        releaseMouse(window(), place);
        answer();
    });
}

void Conversation::doubleTap()
{
    whenReady([this](const QQuickItem&, QPoint place) {
        doubleTapMouse(window(), place);
        answer();
    });
}

void Conversation::touchTap()
{
    whenReady([this](const QQuickItem&, QPoint place) {
        pressFinger(window(), place);
        liftFinger(window(), place);
        answer();
    });
}

void Conversation::press()
{
    whenReady([this](const QQuickItem&, QPoint place) {
        m_pressedPlace = place;
        m_pressTime.start();
        pressMouse(window(), place);
        answer();
    });
}

void Conversation::release()
{
    if (!m_pressedPlace)
        throw std::runtime_error("nothing is pressed");
    releaseMouse(window(), *m_pressedPlace, std::chrono::milliseconds(m_pressTime.elapsed()));
    m_pressedPlace.reset();
    answer();
}

void Conversation::swipe()
{
    const QPointF from(numberArgument("fromX"), numberArgument("fromY"));
    const QPointF way = QPointF(numberArgument("toX"), numberArgument("toY")) - from;
    const auto duration = static_cast<double>(std::max(1.0, numberArgument("duration")));
    QElapsedTimer time;
    time.start();
    pressFinger(window(), from.toPoint());
    waitUntil(
        [this, from, way, duration, time] {
            const double progress = std::min(1.0, static_cast<double>(time.elapsed()) / duration);
            moveFinger(window(), (from + way * progress).toPoint());
            return progress >= 1.0;
        },
        [] { return "the finger does not arrive"; },
        [this, from, way] {
            liftFinger(window(), (from + way).toPoint());
            answer();
        });
}

void Conversation::key()
{
    window().requestActivate();
    waitUntil([this] { return window().isActive(); }, [] { return "the window does not get the keyboard"; },
              [this] {
                  if (!typeKey(window(), textArgument("key")))
                      throw std::runtime_error("there is no such key");
                  answer();
              });
}

void Conversation::property()
{
    answer({{"value", propertyText(item(), textArgument("property"))}});
}

void Conversation::accessible()
{
    const AccessibleText text = accessibleText(item());
    answer({{"role", text.role}, {"name", text.name}});
}

void Conversation::names()
{
    answer({{"names", QJsonArray::fromStringList(namesOnView(window()))}});
}

void Conversation::focus()
{
    answer({{"item", nameInFocus(window())}});
}

void Conversation::resize()
{
    const QSize size(static_cast<int>(numberArgument("width")), static_cast<int>(numberArgument("height")));
    window().resize(size);
    waitUntil([this, size] { return window().size() == size; },
              [this] {
                  const QSize now = window().size();
                  return QString("the window stays at %1 x %2").arg(now.width()).arg(now.height());
              },
              [this] { whenFresh([this] { answer(); }); });
}

void Conversation::grab()
{
    whenFresh([this] {
        if (!window().grabWindow().save(textArgument("file"), "PNG"))
            throw std::runtime_error("the file cannot be written");
        answer();
    });
}

void Conversation::startFrames()
{
    window();
    m_frames.startReading();
    answer();
}

void Conversation::stopFrames()
{
    const FrameMeter::Reading reading = m_frames.reading();
    answer({{"count", static_cast<qint64>(reading.count)},
            {"period", milliseconds(reading.period)},
            {"longestGap", milliseconds(reading.longestGap)}});
}

} // namespace WindowDriver
