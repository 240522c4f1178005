#include "Core/Base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Core {

std::string base64Encoded(std::string_view bytes)
{
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string encoded;
    encoded.reserve((bytes.size() + 2) / 3 * 4);
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            encoded += i <= bytes.size() ? alphabet[group >> (18 - 6 * i) & 0x3f] : '=';
    }
    return encoded;
}

} // namespace Core
