#include "Platform/Linux/ProgramUpgrade.h"

#include "Platform/AdapterLog.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <sys/inotify.h>
#include <utility>

using namespace std::chrono_literals;

namespace Platform::Linux {

ProgramUpgrade::ProgramUpgrade(Ports ports)
    : m_ports(std::move(ports)), m_activity([this] {
          if (m_isOutdated)
              m_ports.mainQueue.async([this] { schedule(); });
      })
{}

void ProgramUpgrade::watch(Files::FileSystemWatcher& watcher)
{
    const auto program = m_ports.restart.program();
    if (!program)
        return;
    const int handler = watcher.addHandler(
        [this](std::uint32_t, std::string_view) { m_ports.mainQueue.async([this] { check(); }); });
    // Renaming another file over it changes the number of its links.
    watcher.setTargets(handler, {{program->path.string(), IN_ATTRIB | IN_MOVE_SELF}});
    check();
}

void ProgramUpgrade::check()
{
    const auto program = m_ports.restart.program();
    if (!program || !program->isReplaced)
        return;
    if (!m_isOutdated.exchange(true))
        m_ports.log.warning(
            fmt::format("{} was replaced by another version or removed. This process still runs the old "
                        "version; it restarts when it has no window and nothing to do.",
                        program->path.string()));
    schedule();
}

void ProgramUpgrade::setHasWindow(bool hasWindow)
{
    m_hasWindow = hasWindow;
    schedule();
}

void ProgramUpgrade::schedule()
{
    m_timer.reset();
    m_trial.reset();
    if (m_isOutdated && !m_hasWindow)
        m_timer = m_ports.timers.scheduledTimer(m_pause, [this] { startTrial(); });
}

void ProgramUpgrade::startTrial()
{
    if (!m_activity.isIdle())
        return; // Its end schedules the next trial.
    m_trial.emplace(m_ports.restart.trialCommand());
    awaitTrial(longestTrial);
}

void ProgramUpgrade::awaitTrial(std::chrono::milliseconds remaining)
{
    const std::optional<bool> outcome = m_trial->outcome();
    if (outcome == true)
        restart();
    else if (outcome == false || remaining <= 0ms)
        postpone();
    else
        m_timer = m_ports.timers.scheduledTimer(100ms, [this, remaining] { awaitTrial(remaining - 100ms); });
}

void ProgramUpgrade::restart()
{
    if (!m_activity.isIdle())
        return;
    m_ports.restart.request();
    m_ports.quit();
}

void ProgramUpgrade::postpone()
{
    m_pause = std::min<std::chrono::milliseconds>(2 * m_pause, longestPause);
    schedule();
}

} // namespace Platform::Linux
