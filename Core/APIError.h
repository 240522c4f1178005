#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace Core {

/// Why a request to the backend failed: the one type that the backend client throws. Its code is the position
/// of its case below; its domain is its type's name.
class APIError : public Platform::ErrorException {
public:
    /// What could not be made into a URL; absent when there was no base domain.
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
