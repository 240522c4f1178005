#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace Platform {

/// Counts the work that the program should finish before it restarts, such as a request or a push.
///
/// Threads: any.
class Activity {
public:
    /// Work is under way until the last copy of this is gone, which may outlive the `Activity`.
    using Token = std::shared_ptr<const void>;

    /// `onEnd` is called whenever a piece of work has ended, on the thread on which it ended. It
    /// must not use this object.
    explicit Activity(std::function<void()> onEnd) : m_state(std::make_shared<State>())
    {
        m_state->onEnd = std::move(onEnd);
    }
    /// `onEnd` is not called any more.
    ~Activity()
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->onEnd = nullptr;
    }
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    [[nodiscard]] Token begin() const
    {
        const std::lock_guard lock(m_state->mutex);
        ++m_state->count;
        return {m_state.get(), [state = m_state](const void*) {
                    const std::lock_guard endLock(state->mutex);
                    --state->count;
                    if (state->onEnd)
                        state->onEnd();
                }};
    }
    [[nodiscard]] bool isIdle() const
    {
        const std::lock_guard lock(m_state->mutex);
        return m_state->count == 0;
    }

private:
    struct State {
        std::mutex mutex;
        int count = 0;
        std::function<void()> onEnd;
    };

    const std::shared_ptr<State> m_state;
};

} // namespace Platform
