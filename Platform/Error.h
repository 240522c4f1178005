#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace Platform {

/// A description of any failure, independent of the exception type. Errors cross the seam and reach the log
/// in this form.
struct Error {
    /// The qualified name of the error's dynamic type, with dots: "Core.DecodingError".
    std::string typeName;
    std::string domain;
    std::int64_t code = 0;
    /// A human-readable sentence.
    std::string localizedDescription;
    std::optional<std::string> localizedFailureReason;

    friend bool operator==(const Error&, const Error&) = default;
};

/// An exception with a description, an error code and a domain.
class ErrorException : public std::exception {
public:
    explicit ErrorException(std::string description) : m_description(std::move(description)) {}

    /// A sentence or a sentence fragment. May contain a NUL, at which `what()` ends.
    [[nodiscard]] const std::string& description() const { return m_description; }
    [[nodiscard]] const char* what() const noexcept final { return m_description.c_str(); }
    [[nodiscard]] virtual std::int64_t errorCode() const { return 0; }
    /// Empty if the domain is the qualified type name.
    [[nodiscard]] virtual std::string errorDomain() const { return {}; }
    [[nodiscard]] virtual std::optional<std::string> failureReason() const { return std::nullopt; }

private:
    std::string m_description;
};

/// Returns the English description of an errno value, such as "Permission denied".
std::string errorText(int errorNumber);

} // namespace Platform
