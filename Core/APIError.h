#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace Core {

/// The reason for a failed request to the backend; the only exception that `APIClient` throws. The error code
/// is the index in `Case`, the error domain the type name.
class APIError : public Platform::ErrorException {
public:
    /// `text` is the string that is not a valid URL; absent without a base domain.
    struct InvalidBaseURL {
        std::optional<std::string> text;
    };
    struct HTTPStatus {
        std::int64_t statusCode;
        std::optional<Platform::Data> responseBody;
    };
    struct NetworkFailure {
        Platform::Error underlying;
    };
    struct EncodingFailed {
        Platform::Error underlying;
    };
    struct DecodingFailed {
        Platform::Error underlying;
    };
    struct MissingCredentials {};
    struct InvalidResponse {};

    using Case = std::variant<InvalidBaseURL, HTTPStatus, NetworkFailure, EncodingFailed, DecodingFailed,
                              MissingCredentials, InvalidResponse>;

    /// The description never contains a response body.
    explicit APIError(Case theCase);

    [[nodiscard]] const Case& theCase() const { return m_case; }
    [[nodiscard]] std::int64_t errorCode() const override
    {
        return static_cast<std::int64_t>(m_case.index());
    }

private:
    Case m_case;
};

} // namespace Core
