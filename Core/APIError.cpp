#include "Core/APIError.h"

#include <utility>

namespace Core {

namespace {

struct Description {
    std::string operator()(const APIError::InvalidBaseURL& error) const
    {
        return "Invalid base URL: " + error.text.value_or("nil");
    }
    std::string operator()(const APIError::HTTPStatus& error) const
    {
        return "HTTP error: " + std::to_string(error.statusCode);
    }
    std::string operator()(const APIError::NetworkFailure& error) const
    {
        return "Network error: " + error.underlying.localizedDescription;
    }
    std::string operator()(const APIError::EncodingFailed& error) const
    {
        return "Encoding failed: " + error.underlying.localizedDescription;
    }
    std::string operator()(const APIError::DecodingFailed& error) const
    {
        return "Decoding failed: " + error.underlying.localizedDescription;
    }
    std::string operator()(const APIError::MissingCredentials&) const
    {
        return "API credentials not available from configuration";
    }
    std::string operator()(const APIError::InvalidResponse&) const { return "Invalid or non-HTTP response"; }
};

} // namespace

APIError::APIError(Case theCase)
    : ErrorException(std::visit(Description(), theCase)), m_case(std::move(theCase))
{}

} // namespace Core
