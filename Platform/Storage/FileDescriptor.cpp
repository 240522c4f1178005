#include "Platform/Storage/FileDescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Platform::Storage {

FileDescriptor::~FileDescriptor()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

void createPrivateFolders(const std::filesystem::path& folder)
{
    if (folder.empty() || std::filesystem::is_directory(folder))
        return;
    createPrivateFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        throw std::system_error(errno, std::generic_category(), folder.string());
    synchronizeFolder(folder.parent_path());
}

void synchronizeFolder(const std::filesystem::path& folder)
{
    const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened)
        ::fsync(opened.get());
}

void writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd waiting{descriptor, POLLOUT, 0};
            ::poll(&waiting, 1, -1);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "write");
        }
    }
}

} // namespace Platform::Storage
