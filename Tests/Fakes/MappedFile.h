#pragma once

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/mman.h>
#include <system_error>

/// Overwrites the file in place through a mapping, which inotify does not report, padding with spaces. The
/// file must be at least as long as `content`.
inline void overwriteWithoutEvents(const std::filesystem::path& file, std::string_view content)
{
    const std::size_t size = std::filesystem::file_size(file);
    // Never closed, since closing a writable descriptor would be an event.
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    void* bytes = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (bytes == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), file.string());
    auto* text = static_cast<char*>(bytes);
    std::fill(std::copy(content.begin(), content.end(), text), text + size, ' ');
    ::msync(bytes, size, MS_SYNC);
    ::munmap(bytes, size);
}
