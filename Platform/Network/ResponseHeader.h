#pragma once

#include "Platform/URLSession.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Network {

/// The header fields of a response, collected line by line as they arrive.
///
/// libcurl keeps the fields too, but walks its whole list for each one that is read from it. This takes time
/// in proportion to the bytes that arrive, and memory within the two limits below.
class ResponseHeader {
public:
    /// Limit for all header lines of one exchange: those of a proxy, interim responses and trailers included.
    static constexpr std::size_t maximumBytes = std::size_t{256} * 1024;
    /// Later fields are ignored, except for `Location`.
    static constexpr std::size_t maximumFieldCount = 1000;

    /// Takes the next line with its line end. Returns false once the limit is exceeded.
    bool addLine(std::string_view line);
    [[nodiscard]] bool isTooLong() const { return m_byteCount > maximumBytes; }

    /// The fields of the last response. Values of a repeated field are joined with ", ", except for
    /// `Location`, which keeps the first one; trailers are left out.
    [[nodiscard]] const HeaderFields& fields() const { return m_fields; }
    HeaderFields takeFields() { return std::move(m_fields); }

private:
    void addField(std::string_view line);
    void continueField(std::string_view line);

    std::size_t m_byteCount = 0;
    std::size_t m_fieldCount = 0;
    /// Set by the empty line at the end: what follows are trailers.
    bool m_isComplete = false;
    HeaderFields m_fields;
    /// The value that a continuation line belongs to; null when its field was ignored.
    std::string* m_lastValue = nullptr;
};

} // namespace Platform::Network
