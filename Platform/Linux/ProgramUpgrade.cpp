#include "Platform/Linux/ProgramUpgrade.h"

#include "Platform/AdapterLog.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/ProgramFile.h"
#include "Platform/Linux/ProgramRestart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <sys/inotify.h>
#include <utility>

namespace Platform::Linux {

ProgramUpgrade::ProgramUpgrade(Ports ports)
    : m_ports(std::move(ports)), m_activity([this] {
          if (m_isOutdated)
              m_ports.mainQueue.async([this] { schedule(); });
      })
{}

void ProgramUpgrade::watch(Files::FileSystemWatcher& watcher)
{
    const auto program = ProgramFile::of("self");
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
    const auto program = ProgramFile::of("self");
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
    if (m_isOutdated && !m_hasWindow)
        m_timer = m_ports.timers.scheduledTimer(m_pause, [this] { attempt(); });
}

void ProgramUpgrade::attempt()
{
    if (!m_activity.isIdle())
        return; // Its end schedules the next attempt.
    if (m_ports.restart.isPossible()) {
        m_ports.restart.request();
        m_ports.quit();
        return;
    }
    m_pause = std::min<std::chrono::milliseconds>(2 * m_pause, longestPause);
    schedule();
}

} // namespace Platform::Linux
