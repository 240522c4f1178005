#include "Tools/qvctl/Bundle/Archive.h"

#include <fmt/format.h>
#include <zlib.h>

#include <ctime>
#include <stdexcept>
#include <utility>

namespace Qvctl::Bundle {

namespace {

constexpr std::size_t blockSize = 512;

enum FieldOffset : std::size_t {
    nameOffset = 0,
    modeOffset = 100,
    userOffset = 108,
    groupOffset = 116,
    sizeOffset = 124,
    timeOffset = 136,
    checksumOffset = 148,
    typeOffset = 156,
    formatOffset = 257,
    formatVersionOffset = 263,
};

/// Numbers are octal.
std::string header(const BundleFile& file)
{
    std::string block(blockSize, '\0');
    const auto set = [&block](std::size_t offset, const std::string& field) {
        block.replace(offset, field.size(), field);
    };
    set(nameOffset, file.name);
    for (const auto& [offset, field] :
         {std::pair(modeOffset, "0000600"), std::pair(userOffset, "0000000"),
          std::pair(groupOffset, "0000000"), std::pair(typeOffset, "0"), std::pair(formatOffset, "ustar"),
          std::pair(formatVersionOffset, "00")})
        set(offset, field);
    set(sizeOffset, fmt::format("{:011o}", file.content.size()));
    set(timeOffset, fmt::format("{:011o}", std::time(nullptr)));
    set(checksumOffset, "        "); // It counts as blanks in its own sum.
    unsigned checksum = 0;
    for (const char byte : block)
        checksum += static_cast<unsigned char>(byte);
    set(checksumOffset, fmt::format("{:06o}", checksum) + '\0');
    return block;
}

std::string compressed(std::string text)
{
    constexpr int gzipFormat = 16;
    z_stream stream{};
    if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + gzipFormat, 8,
                       Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("the archive cannot be compressed");
    std::string result(::deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    const int outcome = ::deflate(&stream, Z_FINISH);
    result.resize(stream.total_out);
    ::deflateEnd(&stream);
    if (outcome != Z_STREAM_END)
        throw std::runtime_error("the archive cannot be compressed");
    return result;
}

} // namespace

std::string makeArchive(const std::vector<BundleFile>& files)
{
    std::string archive;
    for (const BundleFile& file : files) {
        archive += header(file) + file.content;
        archive.resize((archive.size() + blockSize - 1) / blockSize * blockSize);
    }
    archive.append(2 * blockSize, '\0');
    return compressed(std::move(archive));
}

} // namespace Qvctl::Bundle
