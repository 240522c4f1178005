#pragma once

#include <chrono>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Platform::Linux {

/// A failure to query the session bus. `what()` is a clause for use after a colon.
class SessionBusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The well-known and unique names on the user's session bus. Reading them starts no service.
struct SessionBusNames {
    std::set<std::string, std::less<>> running;
    std::set<std::string, std::less<>> startable;

    [[nodiscard]] bool isThere(std::string_view name) const
    {
        return running.count(name) != 0 || startable.count(name) != 0;
    }

    /// Reads the names from the bus. Throws `SessionBusError` if there is no bus or it does not reply in
    /// time.
    static SessionBusNames query(std::chrono::milliseconds timeout);
};

} // namespace Platform::Linux
