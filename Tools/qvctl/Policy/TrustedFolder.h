#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace Qvctl::Policy {

/// A folder that nobody but root and this user can change, nor anything on the way to it. It is held open, so
/// that what was checked is what is used, whatever becomes of its path.
///
/// Errors: `CommandError` when the folder cannot be trusted, `std::system_error` naming the file or folder.
class TrustedFolder {
public:
    /// Absent when there is no such folder.
    static std::optional<TrustedFolder> open(const std::filesystem::path& path);
    /// Makes the folder and those above it, where they are missing, with exactly this mode.
    static TrustedFolder openOrCreate(const std::filesystem::path& path, mode_t mode);

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    [[nodiscard]] mode_t mode() const;
    void setMode(mode_t mode) const;

    /// Of the entry itself, where it is a link; absent when there is no such entry.
    [[nodiscard]] std::optional<struct stat> status(const std::string& name) const;
    /// The content of a regular file of up to `maximumBytes`; absent when there is no such file.
    [[nodiscard]] std::optional<std::string> read(const std::string& name, std::size_t maximumBytes) const;
    /// Replaces the entry, which is no folder, in one step by a file of this user with exactly this mode. It
    /// has reached the disk then.
    void replace(const std::string& name, std::string_view bytes, mode_t mode) const;
    /// Removes the entry, which is no folder.
    void remove(const std::string& name) const;
    /// Brings changes of entries to the disk.
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
