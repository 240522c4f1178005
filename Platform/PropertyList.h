#pragma once

#include "Platform/Data.h"
#include "Platform/Date.h"

#include <concepts>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Platform {

/// A dynamically typed value of a policy file, a push or a defaults store: text, integer, real, boolean,
/// date, data, array, dictionary, or null, which only JSON can express.
///
/// Immutable. Copies share arrays and dictionaries, so copying a container is cheap regardless of its size.
///
/// Threads: any, concurrently.
class PropertyList {
public:
    struct Null {
        friend bool operator==(Null, Null) = default;
    };
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList, std::less<>>;

    PropertyList() = default;
    PropertyList(std::string text) : m_value(std::move(text)) {}
    PropertyList(const char* text) : m_value(std::string(text)) {}
    PropertyList(bool value) : m_value(value) {}
    PropertyList(double value) : m_value(value) {}
    PropertyList(Date value) : m_value(value) {}
    PropertyList(Data value) : m_value(std::move(value)) {}
    PropertyList(Array value) : m_value(std::make_shared<const Array>(std::move(value))) {}
    PropertyList(Dictionary value) : m_value(std::make_shared<const Dictionary>(std::move(value))) {}

    /// Accepts the ranges of signed and unsigned 64-bit integers.
    template <std::integral Integer>
    PropertyList(Integer value)
    {
        if (std::in_range<std::int64_t>(value))
            m_value = static_cast<std::int64_t>(value);
        else
            m_value = static_cast<std::uint64_t>(value);
    }

    // Each returns the value if it has that type, null otherwise. The pointer is valid as long as this
    // object.
    [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&m_value); }
    [[nodiscard]] const std::int64_t* integer() const { return std::get_if<std::int64_t>(&m_value); }
    [[nodiscard]] const double* real() const { return std::get_if<double>(&m_value); }
    [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&m_value); }
    [[nodiscard]] const Date* date() const { return std::get_if<Date>(&m_value); }
    [[nodiscard]] const Data* data() const { return std::get_if<Data>(&m_value); }
    [[nodiscard]] const Array* array() const { return shared<Array>(); }
    [[nodiscard]] const Dictionary* dictionary() const { return shared<Dictionary>(); }
    /// An integer above the signed range.
    [[nodiscard]] const std::uint64_t* largeInteger() const { return std::get_if<std::uint64_t>(&m_value); }

    // Each moves the value out if it has that type; absent otherwise.
    [[nodiscard]] std::optional<std::string> takeText() && { return take<std::string>(); }
    [[nodiscard]] std::optional<Data> takeData() && { return take<Data>(); }

    /// Integers, reals and booleans are numbers.
    [[nodiscard]] bool isNumber() const;
    [[nodiscard]] bool isNull() const { return std::holds_alternative<Null>(m_value); }

    /// Returns the human-readable name of the type: "text", "integer", "dictionary", …
    [[nodiscard]] const char* typeName() const;

    /// Returns a number as decimal text: reals with up to 16 significant digits ("3.5", "1e+20"), booleans as
    /// "1" and "0". The value must be a number.
    [[nodiscard]] std::string numberText() const;

    /// Returns the default text form: text as it is, numbers as decimal text, booleans as "true" or "false",
    /// containers in brackets with quoted strings and sorted keys. Equal values have equal descriptions.
    /// Different values have different ones, except for numbers with the same decimal text, and for text
    /// outside a container, which can look like any other value.
    [[nodiscard]] std::string description() const;

    friend bool operator==(const PropertyList& left, const PropertyList& right);

private:
    template <typename Value>
    [[nodiscard]] std::optional<Value> take()
    {
        auto* held = std::get_if<Value>(&m_value);
        return held != nullptr ? std::optional(std::move(*held)) : std::nullopt;
    }
    template <typename Container>
    [[nodiscard]] const Container* shared() const
    {
        const auto* held = std::get_if<std::shared_ptr<const Container>>(&m_value);
        return held != nullptr ? held->get() : nullptr;
    }

    std::variant<Null, std::string, std::int64_t, std::uint64_t, double, bool, Date, Data,
                 std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>>
        m_value;
};

/// Returns the value for `key`, or a null value if it is missing or `value` is not a dictionary. The
/// reference is valid as long as the first argument.
const PropertyList& member(const PropertyList::Dictionary& dictionary, std::string_view key);
const PropertyList& member(const PropertyList& value, std::string_view key);

} // namespace Platform
