#pragma once

#include "Tests/Trials/FileRecord.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
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
    /// Returns whether a synchronization, by path relative to the device, takes place.
    using Honors = std::function<bool(std::string_view path)>;
    /// Returns what the disk holds after a cut at `position` with the `number`th loss: 0 stands for none, as
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
    struct Change {
        const Record* record;
        /// The created or renamed file or folder.
        std::size_t node;
    };
    /// A file or folder: what is certain to be on the disk, and what is not.
    struct Node {
        bool isFolder = false;
        std::string bytes;
        std::map<std::string, std::size_t> entries;
        std::vector<Change> pending;

        /// Makes certain what was recorded before `position`.
        void synchronize(std::uint64_t position);
    };
    struct Disk {
        /// The first is the device's folder.
        std::vector<Node> nodes;
        std::map<std::string, std::size_t> names;

        std::size_t add(const std::string& path, bool isFolder);
        void apply(const Record& record, const Honors& honors);
        void applyEntry(const Record& record);
        /// Drops the `number`th loss; false if there are fewer.
        bool lose(std::size_t number);
        /// With null, all changes are kept.
        void collect(FileTree& files, const std::string& path, std::size_t node, std::mt19937* random) const;
    };

    [[nodiscard]] Disk diskAt(std::uint64_t position, const Honors& honors) const;

    ThrowawayDevice& m_device;
    const std::filesystem::path m_file;
    Disk m_begin;
    std::vector<Record> m_records;
    std::vector<std::uint64_t> m_positions;
};
