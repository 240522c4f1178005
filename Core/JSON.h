#pragma once

#include "Core/TextList.h"
#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <boost/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Core {

/// A value that JSON cannot represent, such as an infinite number.
class EncodingError : public Platform::ErrorException {
public:
    using ErrorException::ErrorException;
};

/// Stored JSON that does not have the expected shape.
class DecodingError : public Platform::ErrorException {
public:
    /// The error code is the enumerator's value.
    enum class Kind { typeMismatch, valueNotFound, keyNotFound, dataCorrupted };

    DecodingError(Kind kind, std::string reason) : ErrorException(std::move(reason)), m_kind(kind) {}
    [[nodiscard]] std::int64_t errorCode() const override { return static_cast<std::int64_t>(m_kind); }

private:
    Kind m_kind;
};

/// Writes compact UTF-8 JSON. A real number gets the shortest decimal form that parses back to its value.
struct JSONEncoder {
    /// Throws `EncodingError` for a number that is not finite.
    [[nodiscard]] Platform::Data encode(const boost::json::value& value) const;
};

/// Writes one object straight to bytes, in the form of `JSONEncoder` and in the order of the calls.
class JSONObjectWriter {
public:
    /// Allocates `expectedBytes` at once.
    explicit JSONObjectWriter(std::size_t expectedBytes);

    void add(std::string_view key, std::string_view text);
    void add(std::string_view key, const TextList& texts);
    void add(std::string_view key, std::int64_t integer);
    /// Throws `EncodingError` for a number that is not finite.
    void add(std::string_view key, double number);

    [[nodiscard]] Platform::Data finish() &&;

private:
    void addKey(std::string_view key);

    Platform::Data m_bytes;
};

/// Parses JSON.
struct JSONDecoder {
    /// Allocates the value in `storage`. Throws `DecodingError`.
    [[nodiscard]] boost::json::value decode(const Platform::Data& bytes,
                                            boost::json::storage_ptr storage = {}) const;
};

/// Reads the members of a JSON object and checks their types.
///
/// Ownership: the object must outlive the decoder. Errors: throws `DecodingError` for a value of the wrong
/// type and for a missing member, unless it is optional.
class KeyedDecoder {
public:
    /// Throws `DecodingError` if `value` is not an object.
    explicit KeyedDecoder(const boost::json::value& value);

    [[nodiscard]] std::int64_t integer(std::string_view key) const;
    [[nodiscard]] double number(std::string_view key) const;
    [[nodiscard]] TextList strings(std::string_view key) const;
    /// Absent if the member is missing or null.
    [[nodiscard]] std::optional<std::string> optionalString(std::string_view key) const;

private:
    [[nodiscard]] const boost::json::value& member(std::string_view key) const;

    const boost::json::object& m_object;
};

} // namespace Core
