#pragma once

#include "Platform/URLSession.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Network {

/// Collects the header fields of a response line by line.
///
/// Takes linear time, unlike libcurl's own header interface, which searches its whole list for each field.
/// Memory use is bounded by the two limits below.
class ResponseHeader {
public:
    /// The limit for all header lines of an exchange, including proxy responses, interim responses and
    /// trailers.
    static constexpr std::size_t maximumBytes = std::size_t{256} * 1024;
    /// Further fields are ignored, except for `Location`.
    static constexpr std::size_t maximumFieldCount = 1000;

    /// Parses the next line, including its line ending. Returns false if the header exceeds `maximumBytes`.
    bool addLine(std::string_view line);
    [[nodiscard]] bool isTooLong() const { return m_byteCount > maximumBytes; }

    /// Returns the fields of the final response, without trailers. Values of a repeated field are joined with
    /// ", ", except that only the first `Location` counts.
    [[nodiscard]] const HeaderFields& fields() const { return m_fields; }
    HeaderFields takeFields() { return std::move(m_fields); }

private:
    void addField(std::string_view line);
    void continueField(std::string_view line);

    std::size_t m_byteCount = 0;
    std::size_t m_fieldCount = 0;
    /// Whether the final empty line has arrived; trailers follow it.
    bool m_isComplete = false;
    HeaderFields m_fields;
    /// The value that a continuation line extends; null if its field is ignored.
    std::string* m_lastValue = nullptr;
};

} // namespace Platform::Network
