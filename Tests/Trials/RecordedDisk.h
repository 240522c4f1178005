#pragma once

#include "Tests/Trials/FileRecord.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

/// The policy and state folders of a device: relative paths and contents. Folders have no content.
using FileTree = std::map<std::string, std::optional<std::string>>;

void replaceFiles(const ThrowawayDevice& device, const FileTree& files);

/// Records what programs do to the files of a device, and computes what a disk may hold after a power cut.
///
/// POSIX guarantees only what was synchronized before: the content of a file by fsync(2) of the file, its
/// name by fsync(2) of the folder. Of the rest, the disk may hold anything: each write may be lost or be
/// there, or only some of its sectors; a file may have its new size without the data; each creation, renaming
/// and removal may be lost or not, in any order. Owners, modes and times are not recorded.
class RecordedDisk {
public:
    /// Records programs started on `device` from now on. `device` needs the fault library.
    RecordedDisk(ThrowawayDevice& device, std::filesystem::path file);

    /// The length of the recording in bytes.
    [[nodiscard]] std::uint64_t position() const { return std::filesystem::file_size(m_file); }
    /// Ends the recording. Throws `Violation` if the records do not explain the files that are there now.
    void end();

    /// The ends of all records.
    [[nodiscard]] const std::vector<std::uint64_t>& positions() const { return m_positions; }
    /// Returns what the disk may hold after a cut at `position`.
    [[nodiscard]] FileTree filesAfterCut(std::uint64_t position, std::mt19937& random) const;
    /// Returns whether a synchronization, by path relative to the device, takes place. Null: each does.
    using Honors = std::function<bool(std::string_view path)>;
    /// Returns what the disk holds after a cut at `position` with the `number`th loss. 0 means no loss, as
    /// after a kill of the programs; each other one loses one change of a folder, or all changes of a file,
    /// for lack of a synchronization that `honors` accepts. Absent if there are fewer.
    [[nodiscard]] std::optional<FileTree> filesAfterLoss(std::uint64_t position, std::size_t number,
                                                         const Honors& honors) const;

private:
    struct Record : FileRecord {
        std::string path;
        std::string bytes;
        std::uint64_t end = 0;
    };
    class Disk;

    [[nodiscard]] Disk diskAt(std::uint64_t position, const Honors& honors = {}) const;

    ThrowawayDevice& m_device;
    const std::filesystem::path m_file;
    /// The files when the recording began.
    const FileTree m_before;
    std::vector<Record> m_records;
    std::vector<std::uint64_t> m_positions;
};
