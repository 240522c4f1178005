#include "Platform/Linux/PrivateSocket.h"

#include "Platform/Storage/PrivateFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace Platform::Linux {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void failOn(const fs::path& file, int errorNumber)
{
    throw std::system_error(errorNumber, std::generic_category(), file.string());
}

Storage::FileDescriptor makeSocket(const fs::path& file, int flags)
{
    Storage::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    if (!socket)
        failOn(file, errno);
    return socket;
}

/// Calls `operation`, bind(2) or connect(2), with the address of `file`. Returns zero or the error number.
template <typename Operation>
int withAddress(Operation operation, const Storage::FileDescriptor& socket, const fs::path& file)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string& path = file.native();
    if (path.size() >= sizeof address.sun_path)
        return ENAMETOOLONG;
    std::copy(path.begin(), path.end(), address.sun_path);
    return operation(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                                     : errno;
}

bool hasListener(const fs::path& file)
{
    const int error = withAddress(::connect, makeSocket(file, SOCK_NONBLOCK), file);
    return error == 0 || error == EAGAIN; // EAGAIN: the backlog is full.
}

} // namespace

Storage::FileDescriptor listenOnPrivateSocket(const fs::path& file)
{
    Storage::preparePrivateFolder(file.parent_path(), "XDG_RUNTIME_DIR");
    if (hasListener(file))
        failOn(file, EADDRINUSE);
    Storage::FileDescriptor socket = makeSocket(file, SOCK_NONBLOCK);
    const fs::path newFile = file.string() + ".new";
    ::unlink(newFile.c_str());
    // bind() creates the file with the socket's mode.
    if (::fchmod(socket.get(), S_IRUSR | S_IWUSR) != 0)
        failOn(file, errno);
    if (const int error = withAddress(::bind, socket, newFile); error != 0)
        failOn(file, error);
    if (::listen(socket.get(), SOMAXCONN) != 0 || ::rename(newFile.c_str(), file.c_str()) != 0)
        failOn(file, errno);
    return socket;
}

Storage::FileDescriptor connectToPrivateSocket(const fs::path& file, std::chrono::seconds timeout)
{
    Storage::FileDescriptor socket = makeSocket(file, 0);
    const timeval time{timeout.count(), 0};
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO})
        ::setsockopt(socket.get(), SOL_SOCKET, direction, &time, sizeof time);
    if (const int error = withAddress(::connect, socket, file); error != 0)
        failOn(file, error);
    if (const auto user = peerUser(socket); user != ::geteuid())
        throw std::runtime_error(fmt::format("{} is served by user {}, not by user {}, who runs this program",
                                             file.string(), user ? std::to_string(*user) : "unknown",
                                             ::geteuid()));
    return socket;
}

std::optional<uid_t> peerUser(const Storage::FileDescriptor& socket)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    return credentials.uid;
}

} // namespace Platform::Linux
