#include "Tools/qvctl/InspectedStore.h"

#include <exception>

namespace Qvctl {

void FirstLogLine::write(const Platform::LogHandle&, Platform::LogType, Platform::LogVisibility,
                         std::string_view line) noexcept
{
    try {
        if (text.empty())
            text = line;
    } catch (const std::exception&) {
        // Out of memory.
    }
}

} // namespace Qvctl
