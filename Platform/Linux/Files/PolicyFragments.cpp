#include "Platform/Linux/Files/PolicyFragments.h"

#include "Platform/Error.h"
#include "Platform/Storage/FileDescriptor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <utility>

namespace Platform::Linux::Files {

namespace {

namespace fs = std::filesystem;
using State = PolicyFileReading::State;
using Storage::PathStep;

/// For all fragments together.
constexpr std::size_t maximumFragmentBytes = PropertyLists::maximumPropertyListBytes;

struct FolderCloser {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

bool isLink(int folder, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_LNK;
    struct stat status {};
    return ::fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

/// Returns the entries with names of fragments. Returns null and sets `errno` if the folder cannot be read.
std::optional<std::vector<FragmentFolder::Entry>> entriesOf(const Storage::FileDescriptor& folder)
{
    const int descriptor = ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, FolderCloser> stream(descriptor < 0 ? nullptr : ::fdopendir(descriptor));
    if (!stream)
        return std::nullopt;
    std::vector<FragmentFolder::Entry> entries;
    errno = 0;
    while (const dirent* entry = ::readdir(stream.get())) {
        if (isFragmentName(entry->d_name))
            entries.push_back({entry->d_name, isLink(descriptor, *entry)});
        errno = 0;
    }
    if (errno != 0)
        return std::nullopt;
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return entries;
}

/// Returns why the folder is not trusted; absent if it is.
std::optional<std::string> folderDistrust(const std::vector<PathStep>& steps)
{
    if (auto reason = Storage::distrustReason(steps))
        return reason;
    const mode_t mode = steps.back().status.st_mode;
    if ((mode & (S_IWGRP | S_IWOTH)) != 0)
        return fmt::format("can be written by others (mode {:04o}): remove that permission (chmod go-w)",
                           mode & 07777U);
    return std::nullopt;
}

PolicyFileReading folderReading(const fs::path& path, const FragmentFolder& folder)
{
    PolicyFileReading reading;
    reading.path = path;
    if (folder.error == ENOENT || folder.error == ENOTDIR)
        return reading;
    reading.setRevision(folder.steps.back().status);
    if (folder.steps.back().kind == PathStep::Kind::folder) {
        if (auto reason = folderDistrust(folder.steps))
            return failed(std::move(reading), State::untrusted, std::move(*reason));
    }
    if (folder.error != 0)
        return failed(std::move(reading), State::unreadable, "cannot be read: " + errorText(folder.error));
    if (folder.entries.size() > maximumFragmentCount)
        return failed(std::move(reading), State::malformed,
                      fmt::format("contains more than {} fragments", maximumFragmentCount));
    reading.state = State::good;
    return reading;
}

/// A link without a target is an error, so that the fragment keeps its last content while the target's file
/// system is not mounted.
PolicyFileReading readFragment(const fs::path& path, PropertyLists::WithPlaces withPlaces)
{
    PolicyFileReading reading = readPolicyFile(path, TrustCheck::required, withPlaces);
    struct stat status {};
    if (reading.state == State::missing && ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
        reading.setRevision(status);
        return failed(std::move(reading), State::unreadable, "is a symbolic link to a missing file");
    }
    return reading;
}

bool isFolder(const fs::path& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

bool isFragmentName(std::string_view name)
{
    return !name.starts_with('.') && (name.ends_with(".plist") || name.ends_with(".json"));
}

FragmentFolder listFragments(const fs::path& folder)
{
    FragmentFolder found;
    Storage::FileDescriptor last;
    found.steps = Storage::walkPath(folder, &last);
    const PathStep& end = found.steps.back();
    if (end.kind != PathStep::Kind::folder) {
        found.error = end.kind == PathStep::Kind::missing ? end.error : ENOTDIR;
    } else if (auto entries = entriesOf(last)) {
        found.entries = std::move(*entries);
    } else {
        found.error = errno;
    }
    return found;
}

FragmentReadings readFragments(const fs::path& folder, PropertyLists::WithPlaces withPlaces)
{
    const FragmentFolder list = listFragments(folder);
    FragmentReadings readings{folderReading(folder, list), {}};
    if (readings.folder.state != State::good)
        return readings;
    std::size_t byteCount = 0;
    for (const FragmentFolder::Entry& entry : list.entries) {
        const fs::path path = folder / entry.name;
        PolicyFileReading reading = readFragment(path, withPlaces);
        if (reading.state == State::missing || (reading.state == State::unreadable && isFolder(path)))
            continue;
        byteCount += reading.bytes.size();
        if (reading.state == State::good && byteCount > maximumFragmentBytes) {
            reading = failed(std::move(reading), State::malformed,
                             "is not read because the fragments are larger than 16 MiB together");
            reading.document = {};
        }
        // Only the first file of a configuration is installed as it is.
        reading.bytes.clear();
        readings.files.push_back(std::move(reading));
    }
    return readings;
}

PropertyList combined(const std::vector<PropertyList>& dictionaries)
{
    if (dictionaries.size() == 1)
        return dictionaries.front();
    PropertyList::Dictionary all;
    for (const PropertyList& dictionary : dictionaries) {
        for (const auto& [key, value] : *dictionary.dictionary())
            all.insert_or_assign(key, value);
    }
    return all;
}

} // namespace Platform::Linux::Files
