#include "Platform/NotificationCenter.h"

#include "Platform/DispatchQueue.h"

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace Platform {

struct NotificationCenter::State {
    struct Registration {
        std::string name;
        const void* sender;
        DispatchQueue* queue;
        std::shared_ptr<const Block> block;
    };

    std::mutex mutex;
    std::uint64_t lastRegistration = 0;
    std::map<std::uint64_t, Registration> registrations;
};

NotificationCenter::Token::Token(std::weak_ptr<State> state, std::uint64_t registration)
    : m_state(std::move(state)), m_registration(registration)
{}

NotificationCenter::Token::Token(Token&& other) noexcept
    : m_state(std::exchange(other.m_state, {})), m_registration(other.m_registration)
{}

NotificationCenter::Token& NotificationCenter::Token::operator=(Token&& other) noexcept
{
    if (this != &other) {
        unregister();
        m_state = std::exchange(other.m_state, {});
        m_registration = other.m_registration;
    }
    return *this;
}

NotificationCenter::Token::~Token()
{
    unregister();
}

void NotificationCenter::Token::release()
{
    m_state.reset();
}

void NotificationCenter::Token::unregister()
{
    if (const auto state = std::exchange(m_state, {}).lock()) {
        const std::lock_guard lock(state->mutex);
        state->registrations.erase(m_registration);
    }
}

NotificationCenter::NotificationCenter() : m_state(std::make_shared<State>()) {}

NotificationCenter::Token NotificationCenter::addObserver(std::string_view name, const void* sender,
                                                          DispatchQueue* queue, Block block)
{
    const std::lock_guard lock(m_state->mutex);
    const std::uint64_t registration = ++m_state->lastRegistration;
    m_state->registrations.emplace(registration,
                                   State::Registration{std::string(name), sender, queue,
                                                       std::make_shared<const Block>(std::move(block))});
    return {m_state, registration};
}

void NotificationCenter::post(Notification notification)
{
    std::vector<State::Registration> receivers;
    {
        const std::lock_guard lock(m_state->mutex);
        for (const auto& [id, registration] : m_state->registrations) {
            const bool isObserved =
                registration.name == notification.name &&
                (registration.sender == nullptr || registration.sender == notification.sender);
            if (isObserved)
                receivers.push_back(registration);
        }
    }
    if (receivers.empty())
        return;
    const auto shared = std::make_shared<const Notification>(std::move(notification));
    for (const auto& receiver : receivers) {
        if (receiver.queue == nullptr)
            (*receiver.block)(*shared);
        else
            receiver.queue->async([block = receiver.block, shared] { (*block)(*shared); });
    }
}

} // namespace Platform
