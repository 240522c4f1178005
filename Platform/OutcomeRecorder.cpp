#include "Platform/OutcomeRecorder.h"

#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <utility>

namespace Platform {

OutcomeRecorder::OutcomeRecorder(const Ports& ports) : m_ports(ports) {}

OutcomeRecorder::~OutcomeRecorder()
{
    writePending();
}

void OutcomeRecorder::record(Outcome::Subject subject, Outcome::Result result, Outcome::Kind kind,
                             std::int64_t code)
{
    const std::lock_guard lock(m_mutex);
    m_pending.insert_or_assign(subject, Outcome{result, kind, code, m_ports.clock.now()});
    if (std::exchange(m_isScheduled, true))
        return;
    m_ports.mainQueue.async([this, life = std::weak_ptr(m_life)] {
        if (!life.expired() && !m_pause)
            writePending();
    });
}

void OutcomeRecorder::writePending()
{
    Outcomes pending;
    {
        const std::lock_guard lock(m_mutex);
        pending.swap(m_pending);
        m_isScheduled = false;
    }
    if (pending.empty())
        return;
    pending.merge(storedOutcomes(m_ports.store));
    storeOutcomes(m_ports.store, pending);
    m_pause = m_ports.timers.scheduledTimer(interval, [this] {
        m_pause.reset();
        writePending();
    });
}

} // namespace Platform
