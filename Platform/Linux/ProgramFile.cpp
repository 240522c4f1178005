#include "Platform/Linux/ProgramFile.h"

#include <string_view>
#include <system_error>

namespace Platform::Linux {

namespace fs = std::filesystem;

std::optional<ProgramFile> ProgramFile::of(const std::string& process)
{
    constexpr std::string_view mark = " (deleted)";
    const fs::path link = fs::path("/proc") / process / "exe";
    std::error_code error;
    std::string path = fs::read_symlink(link, error);
    if (error)
        return std::nullopt;
    // The name of a file may end like that, too.
    if (!path.ends_with(mark) || fs::equivalent(link, path, error))
        return ProgramFile{path, false};
    path.resize(path.size() - mark.size());
    return ProgramFile{path, true};
}

} // namespace Platform::Linux
