#include "Platform/Linux/Files/PolicyFileReading.h"

#include "Platform/Storage/FileDescriptor.h"
#include "Platform/Storage/PathWalk.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Linux::Files {

namespace {

using State = PolicyFileReading::State;

/// Reads to the end, or to just past the size limit, which the parser then reports.
std::string readAll(int descriptor)
{
    std::string bytes;
    std::array<char, 65536> chunk;
    while (bytes.size() <= PropertyLists::maximumPropertyListBytes) {
        const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
        if (count == 0)
            break;
        if (count > 0)
            bytes.append(chunk.data(), static_cast<std::size_t>(count));
        else if (errno != EINTR)
            throw std::system_error(errno, std::generic_category());
    }
    return bytes;
}

struct OpenedFile {
    /// Not open if that failed. `openChecked` opens regular files only.
    Storage::FileDescriptor file;
    int error = 0;
    /// The open file's status, otherwise the path's if known.
    struct stat status {};
    /// The reason the file is not trusted.
    std::optional<std::string> distrust = {};
};

/// O_NONBLOCK keeps open() from blocking on a pipe.
constexpr int readingFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

OpenedFile openAny(const std::filesystem::path& path)
{
    OpenedFile opened{Storage::FileDescriptor(::open(path.c_str(), readingFlags))};
    opened.error = opened.file ? 0 : errno;
    static_cast<void>(opened.file ? ::fstat(opened.file.get(), &opened.status)
                                  : ::stat(path.c_str(), &opened.status));
    return opened;
}

/// Opens the file relative to the folder where the walk ended and checks the open file's status. So the file
/// read is the file checked, even if the path has changed since.
OpenedFile openChecked(const std::filesystem::path& path)
{
    OpenedFile opened;
    Storage::FileDescriptor folder;
    std::vector<Storage::PathStep> steps = Storage::walkPath(path, &folder);
    Storage::PathStep& last = steps.back();
    opened.error = last.error;
    if (S_ISREG(last.status.st_mode)) {
        opened.file = Storage::FileDescriptor(
            ::openat(folder.get(), last.path.filename().c_str(), readingFlags | O_NOFOLLOW));
        opened.error = opened.file ? 0 : errno;
        if (opened.file)
            ::fstat(opened.file.get(), &last.status);
    }
    opened.status = last.status;
    opened.distrust = Storage::distrustReason(steps);
    return opened;
}

/// Returns `reading` with the file's parsed content or the error.
PolicyFileReading parsed(PolicyFileReading reading, int descriptor, PropertyLists::WithPlaces withPlaces)
{
    try {
        reading.bytes = readAll(descriptor);
        reading.document = PropertyLists::readPropertyList(reading.bytes, withPlaces);
        if (reading.document.root.dictionary() == nullptr) {
            const char* found = reading.document.root.typeName();
            return failed(std::move(reading), State::malformed,
                          fmt::format("contains a single {} instead of a dictionary", found));
        }
        reading.state = State::good;
    } catch (const PropertyLists::PropertyListError& error) {
        reading.position = error.position();
        return failed(std::move(reading), State::malformed, error.description());
    } catch (const std::system_error& error) {
        return failed(std::move(reading), State::unreadable,
                      "cannot be read: " + errorText(error.code().value()));
    }
    return reading;
}

} // namespace

std::string PolicyFileReading::diagnostic() const
{
    if (position)
        return fmt::format("{}:{}:{}: {}", path.string(), position->line, position->column, reason);
    return fmt::format("{}: {}", path.string(), reason);
}

void PolicyFileReading::setRevision(const struct stat& status)
{
    revision = fmt::format("{}:{}:{}.{:09}", status.st_dev, status.st_ino, status.st_ctim.tv_sec,
                           status.st_ctim.tv_nsec);
}

PolicyFileReading failed(PolicyFileReading reading, State state, std::string reason)
{
    reading.state = state;
    reading.reason = std::move(reason);
    return reading;
}

PolicyFileReading readPolicyFile(const std::filesystem::path& path, TrustCheck trustCheck,
                                 PropertyLists::WithPlaces withPlaces)
{
    PolicyFileReading reading;
    reading.path = path;
    OpenedFile opened = trustCheck == TrustCheck::required ? openChecked(path) : openAny(path);
    if (opened.error == ENOENT || opened.error == ENOTDIR)
        return reading;
    const struct stat& status = opened.status;
    if (status.st_ino != 0)
        reading.setRevision(status);
    if (auto& reason = opened.distrust) {
        // The diagnostic starts with the file's path; do not repeat it in the reason.
        if (const std::string prefix = path.string() + " "; reason->starts_with(prefix))
            reason->erase(0, prefix.size());
        return failed(std::move(reading), State::untrusted, std::move(*reason));
    }
    if (opened.error != 0)
        return failed(std::move(reading), State::unreadable, "cannot be opened: " + errorText(opened.error));
    if (!S_ISREG(status.st_mode))
        return failed(std::move(reading), State::unreadable, "is not a regular file");
    return parsed(std::move(reading), opened.file.get(), withPlaces);
}

PolicyFileReading readPolicyStream(int descriptor, const std::filesystem::path& name,
                                   PropertyLists::WithPlaces withPlaces)
{
    PolicyFileReading reading;
    reading.path = name;
    return parsed(std::move(reading), descriptor, withPlaces);
}

PolicyFileReading readFirstPolicyFile(const std::vector<std::filesystem::path>& candidates,
                                      PropertyLists::WithPlaces withPlaces,
                                      std::vector<PolicyFileReading>* skipped)
{
    for (const auto& candidate : candidates) {
        PolicyFileReading reading = readPolicyFile(candidate, TrustCheck::required, withPlaces);
        if (reading.state != State::missing && reading.state != State::untrusted)
            return reading;
        if (reading.state == State::untrusted && skipped != nullptr)
            skipped->push_back(std::move(reading));
    }
    PolicyFileReading missing;
    missing.path = candidates.empty() ? std::filesystem::path() : candidates.front();
    return missing;
}

} // namespace Platform::Linux::Files
