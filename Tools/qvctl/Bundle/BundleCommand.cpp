// Writes the support bundle.

#include "Platform/Storage/FileDescriptor.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/Bundle/Archive.h"
#include "Tools/qvctl/Bundle/BundleContent.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Bundle::BundleFile;
using Platform::Storage::FileDescriptor;

/// "qvctl-bundle-20261121T030405Z.tar.gz".
std::string defaultName()
{
    std::string time = Platform::SystemClock().now().utcText();
    time.erase(time.find('.'));
    std::erase_if(time, [](char character) { return character == '-' || character == ':'; });
    return fmt::format("qvctl-bundle-{}Z.tar.gz", time);
}

/// A new file that only this user can read; removed unless it is kept.
class NewFile {
public:
    explicit NewFile(const std::string& name)
        : m_name(name),
          m_descriptor(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600))
    {
        if (!m_descriptor && errno == EEXIST)
            throw CommandError(unavailable,
                               fmt::format("{} exists and is not replaced; choose another name", name));
        if (!m_descriptor || ::fchmod(m_descriptor.get(), 0600) != 0)
            throw std::system_error(errno, std::generic_category(), name);
    }
    ~NewFile()
    {
        if (m_descriptor && !m_isKept)
            ::unlink(m_name.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    [[nodiscard]] int get() const { return m_descriptor.get(); }
    void keep()
    {
        if (::fsync(m_descriptor.get()) != 0)
            throw std::system_error(errno, std::generic_category(), m_name);
        m_isKept = true;
    }

private:
    const std::string m_name;
    FileDescriptor m_descriptor;
    bool m_isKept = false;
};

/// On standard error, because standard output may receive the archive.
void listFiles(const std::vector<BundleFile>& files, const std::string& target)
{
    std::string list = styled("{} will contain:\n", target == "-" ? "The archive" : target).text;
    for (const BundleFile& file : files)
        list += fmt::format("  {:<20}{:>8} bytes  {}\n", file.name, file.content.size(), file.description);
    writeDiagnostics(list);
}

} // namespace

ExitCode bundle(const Options& options, const std::optional<std::string>& file)
{
    constexpr std::string_view ending = ".tar.gz";
    const std::string target = file.value_or(defaultName());
    const bool isStream = target == "-";
    if (!isStream && !target.ends_with(ending))
        throw CommandError(usage, fmt::format("{}: the name of a bundle must end with {}", target, ending));
    if (isStream && options.isJSON)
        throw CommandError(usage, "with --json, standard output cannot receive the archive; name a file");
    if (isStream && ::isatty(STDOUT_FILENO) == 1)
        throw CommandError(usage, "the archive is not written to a terminal; name a file");
    std::optional<NewFile> created;
    if (!isStream)
        created.emplace(target); // Before the work.
    const auto files = Bundle::collectBundle(options);
    if (!options.isJSON)
        listFiles(files, target);
    Platform::Storage::writeAll(created ? created->get() : STDOUT_FILENO, Bundle::makeArchive(files));
    if (created)
        created->keep();
    if (options.isJSON) {
        json::array list;
        for (const BundleFile& entry : files)
            list.push_back(
                {{"name", entry.name}, {"description", entry.description}, {"bytes", entry.content.size()}});
        printJSON({{"path", target}, {"files", std::move(list)}});
    } else if (!isStream) {
        print("Wrote {}\n", target);
    }
    return success;
}

} // namespace Qvctl
