// Writes a compressed tar archive to standard output. Standard input contains the files: for each a line with
// its size and its name, then its content. On an error, prints the reason to standard error and exits with 1.

#include "Platform/Error.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Archive = std::unique_ptr<archive, decltype(&archive_write_free)>;
using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

void requireSuccess(const Archive& writer, la_ssize_t result)
{
    if (result < ARCHIVE_OK)
        throw std::runtime_error(std::string(archive_error_string(writer.get())) + ": " +
                                 Platform::errorText(archive_errno(writer.get())));
}

/// Copies the content from standard input.
void addFile(const Archive& writer, const std::string& name, std::size_t size)
{
    const Entry entry(archive_entry_new(), &archive_entry_free);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    archive_entry_set_filetype(entry.get(), S_IFREG);
    archive_entry_set_perm(entry.get(), S_IRUSR | S_IWUSR);
    archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
    requireSuccess(writer, archive_write_header(writer.get(), entry.get()));
    std::array<char, 65536> chunk{};
    while (size > 0) {
        // In step with std::cin, which reads the lines.
        const std::size_t count = std::fread(chunk.data(), 1, std::min(size, chunk.size()), stdin);
        if (count == 0)
            throw std::runtime_error("the input ends early");
        requireSuccess(writer, archive_write_data(writer.get(), chunk.data(), count));
        size -= count;
    }
}

} // namespace

int main()
{
    try {
        const Archive writer(archive_write_new(), &archive_write_free);
        requireSuccess(writer, archive_write_set_format_pax_restricted(writer.get()));
        requireSuccess(writer, archive_write_add_filter_gzip(writer.get()));
        // Otherwise zeros follow the compressed data.
        requireSuccess(writer, archive_write_set_bytes_in_last_block(writer.get(), 1));
        requireSuccess(writer, archive_write_open_fd(writer.get(), STDOUT_FILENO));
        std::size_t size = 0;
        for (std::string name; std::cin >> size && std::cin.get() == ' ' && std::getline(std::cin, name);)
            addFile(writer, name, size);
        requireSuccess(writer, archive_write_close(writer.get()));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
