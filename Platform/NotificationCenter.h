#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace Platform {

class DispatchQueue;

/// The values of a notification, by name. The poster documents their types.
using UserInfo = std::map<std::string, std::any, std::less<>>;

struct Notification {
    std::string name;
    /// The object that posted it, or null. Used only for comparison, never dereferenced.
    const void* sender = nullptr;
    UserInfo userInfo;
};

/// Delivers notifications within the process to the observers of their name and sender.
///
/// Threads: any, concurrently.
/// Ownership: a registration lasts until its token is destroyed; if the token was released, it lasts as long
/// as the center. A delivery that has begun, or is already on its queue, still completes after that.
class NotificationCenter {
    struct State;

public:
    using Block = std::function<void(const Notification&)>;

    /// Removes its registration when destroyed.
    class [[nodiscard]] Token {
    public:
        Token() = default;
        Token(Token&& other) noexcept;
        Token& operator=(Token&& other) noexcept;
        ~Token();

        /// Makes the registration permanent.
        void release();

    private:
        friend class NotificationCenter;
        Token(std::weak_ptr<State> state, std::uint64_t registration);
        void unregister();

        std::weak_ptr<State> m_state;
        std::uint64_t m_registration = 0;
    };

    NotificationCenter();

    /// Observes the notifications named `name` from `sender`, or from all senders if it is null. They are
    /// delivered on `queue`, in the order of posting, or inside the `post` call if `queue` is null.
    Token addObserver(std::string_view name, const void* sender, DispatchQueue* queue, Block block);

    void post(Notification notification);

private:
    std::shared_ptr<State> m_state;
};

} // namespace Platform
