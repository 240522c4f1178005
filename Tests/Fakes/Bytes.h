#pragma once

#include "Platform/PropertyList.h"

/// Returns the bytes of `text`.
inline Platform::Data bytesOf(std::string_view text)
{
    const auto* first = reinterpret_cast<const std::byte*>(text.data());
    return {first, first + text.size()};
}

/// Returns the text whose bytes are `data`.
inline std::string textOf(const Platform::Data& data)
{
    return {reinterpret_cast<const char*>(data.data()), data.size()};
}
