#include "Platform/Linux/PolicyFileReading.h"

#include "Platform/Linux/FileDescriptor.h"
#include "Platform/Linux/PathWalk.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Linux {

namespace {

using State = PolicyFileReading::State;

/// Reads to the end, or to just past the limit, which the parser then reports.
std::string readAll(int descriptor)
{
    std::string bytes;
    std::array<char, 65536> chunk;
    while (bytes.size() <= maximumPropertyListBytes) {
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

PolicyFileReading failed(PolicyFileReading reading, State state, std::string reason)
{
    reading.state = state;
    reading.reason = std::move(reason);
    return reading;
}

/// `reading` with what the open file holds.
PolicyFileReading parsed(PolicyFileReading reading, int descriptor, WithPlaces withPlaces)
{
    try {
        reading.bytes = readAll(descriptor);
        reading.document = readPropertyList(reading.bytes, withPlaces);
        if (reading.document.root.dictionary() == nullptr) {
            const char* found = reading.document.root.typeName();
            return failed(std::move(reading), State::malformed,
                          fmt::format("holds one {} where a dictionary is expected", found));
        }
        reading.state = State::good;
    } catch (const PropertyListError& error) {
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

PolicyFileReading readPolicyFile(const std::filesystem::path& path, TrustCheck trustCheck,
                                 WithPlaces withPlaces)
{
    PolicyFileReading reading;
    reading.path = path;
    // Opened first and judged after, so that what was judged is what is read. O_NONBLOCK: a pipe must not
    // hang us.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    const int openError = file ? 0 : errno;
    if (openError == ENOENT || openError == ENOTDIR)
        return reading;
    struct stat status {};
    if ((file ? ::fstat(file.get(), &status) : ::stat(path.c_str(), &status)) == 0)
        reading.revision = fmt::format("{}:{}:{}.{:09}", status.st_dev, status.st_ino, status.st_ctim.tv_sec,
                                       status.st_ctim.tv_nsec);
    if (trustCheck == TrustCheck::required) {
        auto steps = walkPath(path);
        if (file)
            steps.back().status = status;
        if (auto reason = distrustReason(steps)) {
            // The reason names what is at fault; the diagnostic names this file already.
            if (const std::string ourselves = path.string() + " "; reason->starts_with(ourselves))
                reason->erase(0, ourselves.size());
            return failed(std::move(reading), State::untrusted, std::move(*reason));
        }
    }
    if (openError != 0)
        return failed(std::move(reading), State::unreadable, "cannot be opened: " + errorText(openError));
    if (!S_ISREG(status.st_mode))
        return failed(std::move(reading), State::unreadable, "is not a regular file");
    return parsed(std::move(reading), file.get(), withPlaces);
}

PolicyFileReading readPolicyStream(int descriptor, const std::filesystem::path& name, WithPlaces withPlaces)
{
    PolicyFileReading reading;
    reading.path = name;
    return parsed(std::move(reading), descriptor, withPlaces);
}

PolicyFileReading readFirstPolicyFile(const std::vector<std::filesystem::path>& candidates,
                                      WithPlaces withPlaces, std::vector<PolicyFileReading>* passedOver)
{
    for (const auto& candidate : candidates) {
        PolicyFileReading reading = readPolicyFile(candidate, TrustCheck::required, withPlaces);
        if (reading.state != State::missing && reading.state != State::untrusted)
            return reading;
        if (reading.state == State::untrusted && passedOver != nullptr)
            passedOver->push_back(std::move(reading));
    }
    PolicyFileReading missing;
    missing.path = candidates.empty() ? std::filesystem::path() : candidates.front();
    return missing;
}

} // namespace Platform::Linux
