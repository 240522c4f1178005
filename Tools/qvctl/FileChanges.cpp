#include "Tools/qvctl/FileChanges.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>

namespace Qvctl {

FileChanges::FileChanges(Platform::Linux::Files::PolicyPlaces places, const Platform::AdapterLog& log)
    : m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_event)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    m_watch.emplace(m_watcher, std::move(places), log, [this] { ::eventfd_write(m_event.get(), 1); });
}

void FileChanges::reset() const
{
    eventfd_t count = 0;
    ::eventfd_read(m_event.get(), &count);
}

} // namespace Qvctl
