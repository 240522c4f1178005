#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <boost/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core {

/// A value that JSON cannot say, such as an infinite number.
class EncodingError : public Platform::ErrorException {
public:
    using ErrorException::ErrorException;
};

/// Stored JSON that does not have the expected shape.
class DecodingError : public Platform::ErrorException {
public:
    /// Also the error's code.
    enum class Kind { typeMismatch, valueNotFound, keyNotFound, dataCorrupted };

    DecodingError(Kind kind, std::string reason) : ErrorException(std::move(reason)), m_kind(kind) {}
    [[nodiscard]] std::int64_t errorCode() const override { return static_cast<std::int64_t>(m_kind); }

private:
    Kind m_kind;
};

/// Writes compact UTF-8 JSON. Reals are written as the shortest decimal text that reads back the same, whole
/// ones without a fraction.
struct JSONEncoder {
    /// Throws `EncodingError` for a number that is not finite.
    [[nodiscard]] Platform::Data encode(const boost::json::value& value) const;
};

/// Reads JSON.
struct JSONDecoder {
    /// The value lives in `storage`. Throws `DecodingError`.
    [[nodiscard]] boost::json::value decode(const Platform::Data& bytes,
                                            boost::json::storage_ptr storage = {}) const;
};

/// Reads the members of one JSON object, strictly: a value of another type than asked for throws
/// `DecodingError`, as does a missing one unless it is optional. Refers to the object.
class KeyedDecoder {
public:
    /// Throws when `value` is no object.
    explicit KeyedDecoder(const boost::json::value& value);

    [[nodiscard]] std::int64_t integer(std::string_view key) const;
    [[nodiscard]] double number(std::string_view key) const;
    [[nodiscard]] std::vector<std::string> texts(std::string_view key) const;
    /// Absent when the member is missing or null.
    [[nodiscard]] std::optional<std::string> optionalText(std::string_view key) const;

private:
    [[nodiscard]] const boost::json::value& required(std::string_view key) const;

    const boost::json::object& m_object;
};

} // namespace Core
