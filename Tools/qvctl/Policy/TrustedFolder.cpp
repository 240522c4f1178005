#include "Tools/qvctl/Policy/TrustedFolder.h"

#include "Platform/Storage/PathWalk.h"
#include "Tools/qvctl/Commands.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <system_error>
#include <unistd.h>

namespace Qvctl::Policy {

namespace {

namespace fs = std::filesystem;
using Platform::Storage::FileDescriptor;
using Platform::Storage::PathStep;

[[noreturn]] void throwSystemError(const fs::path& path)
{
    throw std::system_error(errno, std::generic_category(), path.string());
}

/// Returns a random hidden name, unused with overwhelming probability.
std::string temporaryName(const std::string& name)
{
    std::random_device random;
    return fmt::format(".{}.{:08x}{:08x}", name, random(), random());
}

} // namespace

std::optional<TrustedFolder> TrustedFolder::open(const fs::path& path)
{
    FileDescriptor walked;
    const auto steps = Platform::Storage::walkPath(path, &walked);
    if (const auto reason = Platform::Storage::distrustReason(steps))
        throw CommandError(configuration,
                           fmt::format("nothing was changed: the app would not trust a policy file in {}: {}",
                                       path.string(), *reason));
    const PathStep& last = steps.back();
    if (last.kind == PathStep::Kind::missing && last.error == ENOENT)
        return std::nullopt;
    if (last.kind != PathStep::Kind::folder)
        throw std::system_error(last.kind == PathStep::Kind::missing ? last.error : ENOTDIR,
                                std::generic_category(), last.path.string());
    FileDescriptor descriptor(::openat(walked.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor)
        throwSystemError(path);
    return TrustedFolder(path, std::move(descriptor));
}

TrustedFolder TrustedFolder::openOrCreate(const fs::path& path, mode_t mode)
{
    if (auto folder = open(path))
        return *std::move(folder);
    const TrustedFolder parent = openOrCreate(path.parent_path(), mode);
    const std::string name = path.filename();
    if (::mkdirat(parent.m_descriptor.get(), name.c_str(), S_IRWXU) != 0)
        throwSystemError(path);
    FileDescriptor descriptor(
        ::openat(parent.m_descriptor.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!descriptor)
        throwSystemError(path);
    TrustedFolder folder(path, std::move(descriptor));
    folder.setMode(mode);
    parent.synchronize();
    return folder;
}

mode_t TrustedFolder::mode() const
{
    struct stat status {};
    if (::fstat(m_descriptor.get(), &status) != 0)
        throwSystemError(m_path);
    return status.st_mode & 07777U;
}

void TrustedFolder::setMode(mode_t mode) const
{
    if (::fchmod(m_descriptor.get(), mode) != 0)
        throwSystemError(m_path);
}

std::optional<struct stat> TrustedFolder::status(const std::string& name) const
{
    struct stat status {};
    if (::fstatat(m_descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return status;
    if (errno == ENOENT)
        return std::nullopt;
    throwError(name);
}

std::optional<std::string> TrustedFolder::read(const std::string& name, std::size_t maximumBytes) const
{
    const FileDescriptor file(
        ::openat(m_descriptor.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    std::string bytes(maximumBytes, '\0');
    std::size_t size = 0;
    for (ssize_t count = 1; count > 0 && size < maximumBytes; size += static_cast<std::size_t>(count)) {
        count = ::read(file.get(), bytes.data() + size, maximumBytes - size);
        if (count < 0)
            throwError(name);
    }
    bytes.resize(size);
    return bytes;
}

void TrustedFolder::replace(const std::string& name, std::string_view bytes, mode_t mode) const
{
    const std::string temporary = temporaryName(name);
    const int folder = m_descriptor.get();
    const FileDescriptor file(::openat(
        folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file)
        throwError(temporary);
    try {
        if (::fchmod(file.get(), mode) != 0)
            throwError(name);
        Platform::Storage::writeAll(file.get(), bytes);
        if (::fsync(file.get()) != 0 || ::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0)
            throwError(name);
    } catch (const std::system_error& error) {
        ::unlinkat(folder, temporary.c_str(), 0);
        throw std::system_error(error.code(), (m_path / name).string());
    }
}

void TrustedFolder::remove(const std::string& name) const
{
    if (::unlinkat(m_descriptor.get(), name.c_str(), 0) != 0)
        throwError(name);
}

void TrustedFolder::synchronize(const std::string& name) const
{
    const FileDescriptor file(
        ::openat(m_descriptor.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file || ::fsync(file.get()) != 0)
        throwError(name);
}

void TrustedFolder::synchronize() const
{
    if (::fsync(m_descriptor.get()) != 0)
        throwSystemError(m_path);
}

void TrustedFolder::throwError(const std::string& name) const
{
    throwSystemError(m_path / name);
}

} // namespace Qvctl::Policy
