#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace Platform {

/// What can be said of any failure, whatever threw it: the form in which errors cross the seam and reach the
/// log.
struct Error {
    /// The qualified name of the error's dynamic type, with dots: "Core.DecodingError".
    std::string typeName;
    std::string domain;
    std::int64_t code = 0;
    /// A sentence for people.
    std::string localizedDescription;
    std::optional<std::string> localizedFailureReason;

    friend bool operator==(const Error&, const Error&) = default;
};

/// An exception with a description, an error code and a domain, which by default is its qualified type name.
class ErrorException : public std::exception {
public:
    explicit ErrorException(std::string description) : m_description(std::move(description)) {}

    /// One sentence or sentence fragment. May hold a NUL, where `what()` ends.
    [[nodiscard]] const std::string& description() const { return m_description; }
    [[nodiscard]] const char* what() const noexcept final { return m_description.c_str(); }
    [[nodiscard]] virtual std::int64_t errorCode() const { return 0; }
    /// Empty: the domain is the type's name.
    [[nodiscard]] virtual std::string errorDomain() const { return {}; }
    [[nodiscard]] virtual std::optional<std::string> failureReason() const { return std::nullopt; }

private:
    std::string m_description;
};

/// What the system says of an error number: "Permission denied".
std::string errorText(int errorNumber);

} // namespace Platform
