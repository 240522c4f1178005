#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace Qvctl::Policy {

/// An open folder that, like every folder above it, only root and this user can change. All operations use
/// the open descriptor, so they act on the checked folder even if its path changes.
///
/// Errors: `CommandError` if the folder cannot be trusted; `std::system_error`, naming the file or folder.
class TrustedFolder {
public:
    /// Absent if the folder does not exist.
    static std::optional<TrustedFolder> open(const std::filesystem::path& path);
    /// Creates missing folders, including those above, with exactly this mode.
    static TrustedFolder openOrCreate(const std::filesystem::path& path, mode_t mode);

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    [[nodiscard]] mode_t mode() const;
    void setMode(mode_t mode) const;

    /// Does not follow symbolic links. Absent if there is no such entry.
    [[nodiscard]] std::optional<struct stat> status(const std::string& name) const;
    /// Returns up to `maximumBytes` of a regular file; absent if there is no such file.
    [[nodiscard]] std::optional<std::string> read(const std::string& name, std::size_t maximumBytes) const;
    /// Atomically replaces the entry, which must not be a folder, with a file that belongs to this user and
    /// has exactly this mode. The content is on disk when this returns.
    void replace(const std::string& name, std::string_view bytes, mode_t mode) const;
    /// Removes the entry, which must not be a folder.
    void remove(const std::string& name) const;
    /// Flushes the content of a file to disk.
    void synchronize(const std::string& name) const;
    /// Flushes renamed and removed entries to disk.
    void synchronize() const;

private:
    TrustedFolder(std::filesystem::path path, Platform::Storage::FileDescriptor descriptor)
        : m_path(std::move(path)), m_descriptor(std::move(descriptor))
    {}
    [[noreturn]] void throwError(const std::string& name) const;

    std::filesystem::path m_path;
    Platform::Storage::FileDescriptor m_descriptor;
};

} // namespace Qvctl::Policy
