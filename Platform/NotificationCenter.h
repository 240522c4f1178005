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

/// Values by name that a notification carries; who posts it documents their types.
using UserInfo = std::map<std::string, std::any, std::less<>>;

struct Notification {
    std::string name;
    /// Who posted it; null when nobody in particular. An identity, never dereferenced here.
    const void* sender = nullptr;
    UserInfo userInfo;
};

/// In-process notifications: posted by name and sender, delivered to every observer of both.
///
/// Threads: every operation from any thread, concurrently.
/// Ownership: a registration lives until its token is destroyed, or for as long as the centre when its token
/// is released. A block in delivery when its token goes still runs to its end.
class NotificationCenter {
    struct State;

public:
    using Block = std::function<void(const Notification&)>;

    /// Ends its registration when destroyed.
    class [[nodiscard]] Token {
    public:
        Token() = default;
        Token(Token&& other) noexcept;
        Token& operator=(Token&& other) noexcept;
        ~Token();

        /// Gives the registration up to the centre: it can no longer be ended.
        void release();

    private:
        friend class NotificationCenter;
        Token(std::weak_ptr<State> state, std::uint64_t registration);
        void unregister();

        std::weak_ptr<State> m_state;
        std::uint64_t m_registration = 0;
    };

    NotificationCenter();

    /// Observes the notifications called `name` of `sender`, or of every sender when that is null. Each is
    /// delivered on `queue`, in the order of posting; without a queue inside the posting call.
    Token addObserver(std::string_view name, const void* sender, DispatchQueue* queue, Block block);

    void post(Notification notification);

private:
    std::shared_ptr<State> m_state;
};

} // namespace Platform
