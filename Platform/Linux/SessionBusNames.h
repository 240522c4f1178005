#pragma once

#include <chrono>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Platform::Linux {

/// Why the session bus does not answer: a clause.
class SessionBusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The well-known and unique names on the user's session bus, for a process that only looks. Calls the bus
/// alone, so no service is started.
struct SessionBusNames {
    std::set<std::string, std::less<>> running;
    std::set<std::string, std::less<>> startable;

    [[nodiscard]] bool isThere(std::string_view name) const
    {
        return running.count(name) != 0 || startable.count(name) != 0;
    }

    /// Throws `SessionBusError` when there is no bus, or none that answers in time.
    static SessionBusNames query(std::chrono::milliseconds timeout);
};

} // namespace Platform::Linux
