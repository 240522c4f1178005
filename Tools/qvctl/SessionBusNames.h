#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Qvctl {

/// Why the session bus does not answer: a clause.
class SessionBusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Who is on the user's session bus, and whom the bus could start. Only the bus itself is asked, so nobody is
/// started.
struct SessionBusNames {
    std::set<std::string, std::less<>> running;
    std::set<std::string, std::less<>> startable;

    [[nodiscard]] bool isThere(std::string_view name) const
    {
        return running.count(name) != 0 || startable.count(name) != 0;
    }

    /// Throws `SessionBusError` when there is no bus, or none that answers in time.
    static SessionBusNames ask(std::chrono::milliseconds timeout);
};

} // namespace Qvctl
