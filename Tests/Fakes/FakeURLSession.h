#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/URLSession.h"

#include <utility>
#include <vector>

/// Records every request and completes it with `outcome` on a queue.
class FakeURLSession final : public Platform::URLSession {
public:
    explicit FakeURLSession(Platform::DispatchQueue& queue) : m_queue(queue) {}

    void start(Platform::URLRequest request, Completion completion) override
    {
        requests.push_back(std::move(request));
        m_queue.async([completion = std::move(completion), outcome = outcome] { completion(outcome); });
    }

    Outcome outcome = Platform::URLResponse{{}, Platform::HTTPURLResponse{200, {}}};
    std::vector<Platform::URLRequest> requests;

private:
    Platform::DispatchQueue& m_queue;
};
