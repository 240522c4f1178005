#pragma once

#include "Platform/DispatchQueue.h"

#include <future>
#include <memory>

/// Runs `work` on the queue of another thread, after everything scheduled before, and waits for it.
inline void runOn(
    Platform::DispatchQueue& queue, const std::function<void()>& work = [] {})
{
    // Shared, because the other thread may still use it when this function returns.
    const auto done = std::make_shared<std::promise<void>>();
    queue.async([&work, done] {
        work();
        done->set_value();
    });
    done->get_future().wait();
}
