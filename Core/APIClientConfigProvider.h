#pragma once

#include <optional>
#include <string>

namespace Core {

/// Provides the backend's address and credentials, read for each request. Threads: any, concurrently.
class APIClientConfigProvider {
public:
    virtual ~APIClientConfigProvider() = default;

    [[nodiscard]] virtual std::optional<std::string> baseDomain() const = 0;
    [[nodiscard]] virtual std::optional<std::string> apiKey() const = 0;
    [[nodiscard]] virtual std::optional<std::string> deviceId() const = 0;
};

} // namespace Core
