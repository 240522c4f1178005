#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/FatalError.h"

#include <atomic>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

namespace Platform {

template <typename T>
class Task;

namespace Detail {

/// The common part of all task promises: resumes the awaiting coroutine when the task finishes.
struct TaskPromiseBase {
    struct FinalAwaiter {
        [[nodiscard]] bool await_ready() const noexcept { return false; }
        template <typename Promise>
        [[nodiscard]] std::coroutine_handle<>
        await_suspend(std::coroutine_handle<Promise> finished) const noexcept
        {
            return finished.promise().continuation;
        }
        void await_resume() const noexcept {}
    };

    [[nodiscard]] std::suspend_always initial_suspend() const noexcept { return {}; }
    [[nodiscard]] FinalAwaiter final_suspend() const noexcept { return {}; }

    std::coroutine_handle<> continuation = std::noop_coroutine();
};

template <typename T>
struct TaskPromise : TaskPromiseBase {
    Task<T> get_return_object();
    template <typename Value>
    void return_value(Value&& value)
    {
        result.template emplace<1>(std::forward<Value>(value));
    }
    void unhandled_exception() { result.template emplace<2>(std::current_exception()); }
    T take()
    {
        if (auto* error = std::get_if<2>(&result))
            std::rethrow_exception(*error);
        return std::move(std::get<1>(result));
    }

    std::variant<std::monostate, T, std::exception_ptr> result;
};

template <>
struct TaskPromise<void> : TaskPromiseBase {
    Task<void> get_return_object();
    void return_void() const {}
    void unhandled_exception() { error = std::current_exception(); }
    void take() const
    {
        if (error)
            std::rethrow_exception(error);
    }

    std::exception_ptr error;
};

} // namespace Detail

/// A coroutine that computes a `T`. It starts when it is awaited or spawned, runs on the thread that resumes
/// it, and passes its value or exception to the awaiting coroutine.
///
/// Ownership: the task owns its frame. Destroying an unfinished task destroys the frame at its suspension
/// point, so nothing may resume it afterwards.
///
/// g++ 12 destroys temporaries of a `co_await` expression too early or twice. Name the operands first:
///
///     Task<int> twice(Port& port) {
///         auto request = port.number();
///         const int number = co_await std::move(request);
///         co_return 2 * number;
///     }
template <typename T>
class [[nodiscard]] Task {
public:
    using promise_type = Detail::TaskPromise<T>;

    Task(Task&& other) noexcept : m_frame(std::exchange(other.m_frame, nullptr)) {}
    Task& operator=(Task&& other) noexcept
    {
        std::swap(m_frame, other.m_frame);
        return *this;
    }
    ~Task()
    {
        if (m_frame)
            m_frame.destroy();
    }

    auto operator co_await() && noexcept
    {
        struct Awaiter {
            std::coroutine_handle<promise_type> frame;
            [[nodiscard]] bool await_ready() const noexcept { return false; }
            [[nodiscard]] std::coroutine_handle<>
            await_suspend(std::coroutine_handle<> awaiting) const noexcept
            {
                frame.promise().continuation = awaiting;
                return frame;
            }
            [[nodiscard]] T await_resume() const { return frame.promise().take(); }
        };
        return Awaiter{m_frame};
    }

private:
    friend promise_type;
    explicit Task(std::coroutine_handle<promise_type> frame) : m_frame(frame) {}

    std::coroutine_handle<promise_type> m_frame;
};

template <typename T>
Task<T> Detail::TaskPromise<T>::get_return_object()
{
    return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}

inline Task<void> Detail::TaskPromise<void>::get_return_object()
{
    return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}

/// Returns an awaitable that resumes the awaiting coroutine on `queue`.
inline auto resumeOn(DispatchQueue& queue)
{
    struct Awaiter {
        DispatchQueue& queue;
        [[nodiscard]] bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> awaiting) const
        {
            queue.async([awaiting] { awaiting.resume(); });
        }
        void await_resume() const noexcept {}
    };
    return Awaiter{queue};
}

namespace Detail {

/// A coroutine that is not awaited; its frame frees itself.
struct Detached {
    struct promise_type {
        [[nodiscard]] Detached get_return_object() const noexcept { return {}; }
        [[nodiscard]] std::suspend_never initial_suspend() const noexcept { return {}; }
        [[nodiscard]] std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { fatalError("an exception left a spawned task"); }
    };
};

inline Detached runDetached(DispatchQueue& queue, Task<void> task)
{
    auto onQueue = resumeOn(queue);
    co_await onQueue;
    co_await std::move(task);
}

} // namespace Detail

/// Starts `task` on `queue` and returns immediately. An exception that leaves the task ends the process.
inline void spawn(DispatchQueue& queue, Task<void> task)
{
    Detail::runDetached(queue, std::move(task));
}

/// Resumes the coroutine of a `Suspension` with a value. Call `resume` exactly once, on any copy; a second
/// call ends the process.
///
/// Threads: any.
template <typename T>
class Continuation {
public:
    void resume(T value) const
    {
        if (m_state->isUsed.exchange(true))
            fatalError("a continuation was resumed twice");
        m_state->result = std::move(value);
        if (m_state->stage.exchange(State::Stage::resumed) == State::Stage::suspended)
            m_state->awaiting.resume();
    }

private:
    template <typename>
    friend class Suspension;

    struct State {
        enum class Stage { pending, suspended, resumed };
        std::atomic<bool> isUsed = false;
        std::atomic<Stage> stage = Stage::pending;
        std::coroutine_handle<> awaiting;
        std::optional<T> result;
    };

    std::shared_ptr<State> m_state = std::make_shared<State>();
};

/// Turns a callback into an awaitable: `start` starts the operation, and the coroutine stays suspended until
/// the continuation is resumed, which may happen inside `start`.
///
///     Suspension<Settings> settings([&](auto continuation) {
///         center.getSettings([=](Settings value) { continuation.resume(value); });
///     });
///     const Settings value = co_await settings;
template <typename T>
class [[nodiscard]] Suspension {
public:
    using Start = std::function<void(Continuation<T>)>;

    explicit Suspension(Start start) : m_start(std::move(start)) {}

    [[nodiscard]] bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> awaiting)
    {
        // The coroutine may resume, and destroy this object, before `start` returns.
        const auto state = m_continuation.m_state;
        state->awaiting = awaiting;
        const Start start = std::move(m_start);
        start(m_continuation);
        using Stage = typename Continuation<T>::State::Stage;
        return state->stage.exchange(Stage::suspended) != Stage::resumed;
    }
    T await_resume() { return *std::move(m_continuation.m_state->result); }

private:
    Start m_start;
    Continuation<T> m_continuation;
};

} // namespace Platform
