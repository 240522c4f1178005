#pragma once

#include "Core/APIClientConfigProvider.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Core/URLComposition.h"
#include "Platform/Task.h"
#include "Platform/URLSession.h"

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Core {

class Logger;

namespace APIRoutes {
/// Path prefix of the management backend.
inline constexpr std::string_view mdmBackendPrefix = "apis/mdm/backend";
} // namespace APIRoutes

/// A value with a `toJSON()` operation.
template <typename Value>
concept Encodable = requires(const Value& value)
{
    {
        value.toJSON()
        } -> std::convertible_to<boost::json::value>;
};

/// Sends requests to the organization's backend, with the address and credentials of the configuration.
///
/// Threads: any, concurrently; a task resumes on the thread on which the session calls its completion.
/// Ownership: the client and the constructor's reference arguments must outlive its tasks.
/// Errors: tasks throw only `APIError`. No request is retried.
///
///     auto upload = client.post(path, std::optional(payload));
///     const auto [body, response] = co_await std::move(upload);
class APIClient {
public:
    using Response = std::pair<Platform::Data, Platform::HTTPURLResponse>;

    APIClient(const APIClientConfigProvider& configProvider, Platform::URLSession& session,
              JSONDecoder decoder, JSONEncoder encoder, Logger& logger);

    // Paths are relative to the base domain, with or without a leading "/".
    Platform::Task<Response> get(std::string path, std::vector<URLQueryItem> queryItems = {}) const;
    Platform::Task<Response> post(std::string path, std::optional<Platform::Data> body) const;
    Platform::Task<Response> delete_(std::string path) const;

    /// Sends no body if `body` cannot be encoded.
    template <Encodable Body>
    Platform::Task<Response> post(const std::string& path, const std::optional<Body>& body) const
    {
        return post(path, encoded(body));
    }
    /// Sends no body if `body` cannot be encoded.
    template <Encodable Body>
    Platform::Task<Response> put(const std::string& path, const std::optional<Body>& body) const
    {
        return send(path, Constants::HTTPRequestMethods::put, encoded(body), {});
    }

private:
    template <Encodable Body>
    [[nodiscard]] std::optional<Platform::Data> encoded(const std::optional<Body>& body) const
    {
        if (!body)
            return std::nullopt;
        try {
            return m_encoder.encode(body->toJSON());
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }

    Platform::Task<Response> send(std::string path, std::string_view method,
                                  std::optional<Platform::Data> body,
                                  std::vector<URLQueryItem> queryItems) const;
    [[nodiscard]] Platform::URLRequest request(std::string_view path, std::string_view method,
                                               std::optional<Platform::Data> body,
                                               const std::vector<URLQueryItem>& queryItems) const;
    Platform::Task<Response> execute(Platform::URLRequest request) const;
    Platform::Task<Response> executeAndCheck(Platform::URLRequest request) const;

    const APIClientConfigProvider& m_configProvider;
    Platform::URLSession& m_session;
    /// Unused: no request decodes its response.
    [[maybe_unused]] JSONDecoder m_decoder;
    JSONEncoder m_encoder;
    Logger& m_logger;
};

} // namespace Core
