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

/// One loosely typed value as device management and the defaults stores know it: text, integer, real,
/// boolean, date, data, array or dictionary; and null, which JSON alone can say.
///
/// Immutable. Copies share their arrays and dictionaries, so a copy costs a reference count whatever its
/// size, and may be read from any thread.
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

    /// Integers reach from the least signed to the greatest unsigned 64-bit value.
    template <std::integral Integer>
    PropertyList(Integer value)
    {
        if (std::in_range<std::int64_t>(value))
            m_value = static_cast<std::int64_t>(value);
        else
            m_value = static_cast<std::uint64_t>(value);
    }

    // Each answers the value when it has that type, null otherwise. The pointer lives as long as this value.
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

    // The same for one that is no longer needed, without a copy; absent when it has another type.
    [[nodiscard]] std::optional<std::string> takeText() && { return take<std::string>(); }
    [[nodiscard]] std::optional<Data> takeData() && { return take<Data>(); }

    /// Integers, reals and booleans are numbers.
    [[nodiscard]] bool isNumber() const;
    [[nodiscard]] bool isNull() const { return std::holds_alternative<Null>(m_value); }

    /// The type in words for people: "text", "integer", "dictionary", …
    [[nodiscard]] const char* typeName() const;

    /// A number's decimal text: integers in full, reals to 16 significant digits ("3.5", "1e+20"), booleans
    /// "1" and "0". Only for numbers.
    [[nodiscard]] std::string numberText() const;

    /// The default textual rendering: text as itself, a number as its decimal text, a boolean as "true" or
    /// "false", containers in brackets with their texts quoted and their keys sorted. Equal values give equal
    /// renderings. Different ones give different renderings, except for numbers with the same decimal text
    /// and for a text on its own, which may look like any other value.
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

/// The value under `key`; a null one when there is none, or when `value` is no dictionary. Lives as long as
/// what it is taken from.
const PropertyList& member(const PropertyList::Dictionary& dictionary, std::string_view key);
const PropertyList& member(const PropertyList& value, std::string_view key);

} // namespace Platform
