#include "Core/APIClient.h"

#include "Core/APIError.h"
#include "Core/ErrorBridging.h"
#include "Core/Logger.h"
#include "Core/UnicodeText.h"
#include "Platform/Encoding.h"

namespace Core {

using Platform::Data;
using Platform::Task;
using Platform::URLRequest;

namespace {

std::string responseText(const Data& body)
{
    const std::string_view bytes(reinterpret_cast<const char*>(body.data()), body.size());
    return Platform::isUTF8(bytes) ? std::string(bytes) : "No response body";
}

} // namespace

APIClient::APIClient(const APIClientConfigProvider& configProvider, Platform::URLSession& session,
                     JSONDecoder decoder, JSONEncoder encoder, Logger& logger)
    : m_configProvider(configProvider),
      m_session(session),
      m_decoder(decoder),
      m_encoder(encoder),
      m_logger(logger)
{}

Task<APIClient::Response> APIClient::get(std::string path, std::vector<URLQueryItem> queryItems) const
{
    return send(std::move(path), Constants::HTTPRequestMethods::get, std::nullopt, std::move(queryItems));
}

Task<APIClient::Response> APIClient::post(std::string path, std::optional<Data> body) const
{
    return send(std::move(path), Constants::HTTPRequestMethods::post, std::move(body), {});
}

Task<APIClient::Response> APIClient::delete_(std::string path) const
{
    return send(std::move(path), Constants::HTTPRequestMethods::delete_, std::nullopt, {});
}

Task<APIClient::Response> APIClient::send(std::string path, std::string_view method, std::optional<Data> body,
                                          std::vector<URLQueryItem> queryItems) const
{
    auto checked = executeAndCheck(request(path, method, std::move(body), queryItems));
    co_return co_await std::move(checked);
}

URLRequest APIClient::request(std::string_view path, std::string_view method, std::optional<Data> body,
                              const std::vector<URLQueryItem>& queryItems) const
{
    const std::string configured = m_configProvider.baseDomain().value_or("");
    const std::string_view domain = trimmed(configured);
    std::string baseText(domain);
    if (!baseText.ends_with('/'))
        baseText += '/';
    const auto base = domain.empty() ? std::nullopt : parseURL(baseText);
    if (!base)
        throw APIError(APIError::InvalidBaseURL{m_configProvider.baseDomain()});

    if (path.starts_with('/'))
        path.remove_prefix(1);
    auto url = resolveURL(*base, path);
    if (!url)
        throw APIError(APIError::InvalidBaseURL{std::string(domain).append(path)});
    if (!queryItems.empty())
        setQueryItems(*url, queryItems);

    URLRequest request{.url = std::string(url->buffer()), .httpMethod = std::string(method)};
    request.setValue("application/json", "Content-Type");
    request.setValue("application/json", "Accept");
    request.httpBody = std::move(body);
    return request;
}

Task<APIClient::Response> APIClient::execute(URLRequest request) const
{
    if (const auto apiKey = m_configProvider.apiKey(); apiKey && !apiKey->empty())
        request.setValue(std::string(Constants::bearerPrefix) + *apiKey, Constants::authorizationHeader);
    if (const auto deviceId = m_configProvider.deviceId(); deviceId && !deviceId->empty())
        request.setValue(*deviceId, Constants::deviceIdHeader);

    std::optional<Platform::URLResponse> response;
    try {
        auto transfer = m_session.data(std::move(request));
        response = co_await std::move(transfer);
    } catch (const std::exception& error) {
        const Platform::Error underlying = bridge(error);
        m_logger.error("API request failed", "execute(_:)",
                       {.category = LogCategory::network, .error = underlying});
        throw APIError(APIError::NetworkFailure{underlying});
    }
    if (!response->http)
        throw APIError(APIError::InvalidResponse{});
    co_return Response(std::move(response->body), *std::move(response->http));
}

Task<APIClient::Response> APIClient::executeAndCheck(URLRequest request) const
{
    auto execution = execute(std::move(request));
    Response response = co_await std::move(execution);
    const auto& [body, http] = response;
    if (http.statusCode >= 200 && http.statusCode < 300)
        co_return response;
    m_logger.warning(
        "API HTTP error", "executeAndCheck(_:)",
        {.category = LogCategory::network,
         .context = {{"statusCode", std::to_string(http.statusCode)}, {"responseBody", responseText(body)}}});
    throw APIError(APIError::HTTPStatus{http.statusCode, body});
}

} // namespace Core
