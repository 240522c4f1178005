#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace Qvctl {

/// The time at which a step gives up.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds timeout) : m_end(std::chrono::steady_clock::now() + timeout)
    {}
    /// Zero once the deadline has passed.
    [[nodiscard]] std::chrono::milliseconds remaining() const
    {
        using std::chrono::milliseconds;
        const auto left = std::chrono::ceil<milliseconds>(m_end - std::chrono::steady_clock::now());
        return std::max(left, milliseconds(0));
    }

private:
    std::chrono::steady_clock::time_point m_end;
};

/// "5 s", "0.5 s".
inline std::string durationText(std::chrono::milliseconds duration)
{
    return fmt::format("{:g} s", std::chrono::duration<double>(duration).count());
}

} // namespace Qvctl
