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
/// Stands in front of the paths of the management backend.
inline constexpr std::string_view mdmBackendPrefix = "apis/mdm/backend";
} // namespace APIRoutes

/// A value that says itself as JSON.
template <typename Value>
concept Encodable = requires(const Value& value)
{
    {
        value.toJSON()
        } -> std::convertible_to<boost::json::value>;
};

/// Sends requests to the organisation's backend with the managed address and credentials, read anew for each.
///
/// Threads: any, several at once; a request goes on where the session delivers its outcome.
/// Ownership: refers to what it is built from; both must outlive the tasks it makes.
/// Errors: tasks throw `APIError`, and nothing else. Nothing is retried.
///
///     auto upload = client.post(path, std::optional(payload));
///     const auto [body, response] = co_await std::move(upload);
class APIClient {
public:
    using Response = std::pair<Platform::Data, Platform::HTTPURLResponse>;

    APIClient(const APIClientConfigProvider& configProvider, Platform::URLSession& session,
              JSONDecoder decoder, JSONEncoder encoder, Logger& logger);

    // Paths are relative to the base domain; one leading "/" does not count.
    Platform::Task<Response> get(std::string path, std::vector<URLQueryItem> queryItems = {}) const;
    Platform::Task<Response> post(std::string path, std::optional<Platform::Data> body) const;
    Platform::Task<Response> delete_(std::string path) const;

    /// A body that cannot be encoded is left out.
    template <Encodable Body>
    Platform::Task<Response> post(const std::string& path, const std::optional<Body>& body) const
    {
        return post(path, encoded(body));
    }
    /// A body that cannot be encoded is left out.
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
    /// Held for the client's users; no request decodes its response.
    [[maybe_unused]] JSONDecoder m_decoder;
    JSONEncoder m_encoder;
    Logger& m_logger;
};

} // namespace Core
