#include "Tests/Trials/RecordedDisk.h"

#include "Tests/Trials/Trials.h"

namespace fs = std::filesystem;
using Kind = FileRecord::Kind;
using Random = std::mt19937;

namespace {

constexpr const char* recordedFolders[] = {"data", "policy"};
constexpr std::size_t sectorBytes = 512;

/// Whether a file is meaningless after a power cut: the index of a write-ahead log, or a file of the runtime
/// folder.
bool isVolatile(std::string_view path)
{
    return path.ends_with("-shm") || path.find("/run/") != std::string_view::npos;
}

bool flip(Random& random)
{
    return std::uniform_int_distribution(0, 1)(random) == 1;
}

FileTree readFiles(const ThrowawayDevice& device)
{
    FileTree files;
    for (const fs::path folder : recordedFolders) {
        if (!fs::exists(device.path(folder.native())))
            continue;
        files[folder] = std::nullopt;
        for (const auto& entry : fs::recursive_directory_iterator(device.path(folder.native()))) {
            if (!isVolatile(entry.path().native()))
                files[entry.path().lexically_relative(device.path(""))] =
                    entry.is_directory() ? std::nullopt : std::optional(ThrowawayDevice::read(entry.path()));
        }
    }
    return files;
}

} // namespace

void replaceFiles(const ThrowawayDevice& device, const FileTree& files)
{
    for (const char* folder : recordedFolders)
        fs::remove_all(device.path(folder));
    for (const auto& [path, content] : files) {
        if (content)
            device.write(device.path(path), *content);
        else
            fs::create_directory(device.path(path));
        fs::permissions(device.path(path), content ? fs::perms(0600) : fs::perms::owner_all);
    }
}

/// The files and folders on the disk, with the changes that a power cut may undo.
class RecordedDisk::Disk {
public:
    /// `root` is the device's folder, to which the paths of `files` are relative.
    Disk(const fs::path& root, const FileTree& files)
    {
        add(root, true);
        for (const auto& [relative, content] : files) {
            const fs::path path = root / relative;
            const std::size_t node = add(path, !content);
            m_nodes[node].bytes = content.value_or("");
            m_nodes[m_names.at(path.parent_path())].entries[path.filename()] = node;
        }
    }

    void apply(const Record& record, const Honors& honors)
    {
        if (record.kind != Kind::write && record.kind != Kind::truncate && record.kind != Kind::synchronize) {
            applyEntry(record);
            return;
        }
        const auto found = m_names.find(record.path);
        if (found == m_names.end())
            return;
        Node& node = m_nodes[found->second];
        if (record.kind != Kind::synchronize)
            node.pending.push_back({&record, 0});
        else if (!honors || honors(std::string_view(record.path).substr(m_names.begin()->first.size())))
            node.synchronize(record.offset);
    }

    /// Drops the `number`th loss; false if there are fewer.
    bool lose(std::size_t number)
    {
        for (Node& node : m_nodes) {
            const std::size_t count =
                node.isFolder ? node.pending.size() : std::min(node.pending.size(), std::size_t(1));
            if (number < count) {
                const auto begin = node.pending.begin() + static_cast<std::ptrdiff_t>(number);
                node.pending.erase(begin, node.isFolder ? begin + 1 : node.pending.end());
                return true;
            }
            number -= count;
        }
        return false;
    }

    /// Returns all files after a cut. With null, no change is lost.
    [[nodiscard]] FileTree files(Random* random) const
    {
        FileTree files;
        collect(files, "", 0, random);
        return files;
    }

private:
    struct Change {
        const Record* record;
        /// The created or renamed file or folder.
        std::size_t node;
    };
    struct Node {
        bool isFolder = false;
        std::string bytes;
        std::map<std::string, std::size_t> entries;
        std::vector<Change> pending;

        /// Applies the change, or only random sectors of it.
        void apply(const Change& change, Random* tearing = nullptr)
        {
            const Record& record = *change.record;
            const auto nameOf = [](const fs::path& path) { return path.filename().string(); };
            if (record.kind == Kind::truncate)
                bytes.resize(record.offset);
            else if (record.kind == Kind::write)
                write(record, tearing);
            else
                entries.erase(nameOf(record.path));
            if (record.kind == Kind::createFile || record.kind == Kind::createFolder)
                entries[nameOf(record.path)] = change.node;
            else if (record.kind == Kind::rename)
                entries[nameOf(record.bytes)] = change.node;
        }
        void write(const Record& record, Random* tearing)
        {
            for (std::size_t begin = 0; begin < record.byteCount;) {
                const std::size_t offset = record.offset + begin;
                const std::size_t count =
                    std::min(record.byteCount - begin, sectorBytes - offset % sectorBytes);
                if (tearing == nullptr || flip(*tearing)) {
                    bytes.resize(std::max(bytes.size(), offset + count));
                    bytes.replace(offset, count, record.bytes, begin, count);
                }
                begin += count;
            }
        }
        /// Makes certain what was recorded before `position`.
        void synchronize(std::uint64_t position)
        {
            std::erase_if(pending, [&](const Change& change) {
                const bool isBefore = change.record->end <= position;
                if (isBefore)
                    apply(change);
                return isBefore;
            });
        }
    };

    std::size_t add(const std::string& path, bool isFolder)
    {
        m_nodes.push_back({.isFolder = isFolder, .bytes = {}, .entries = {}, .pending = {}});
        return m_names[path] = m_nodes.size() - 1;
    }

    void applyEntry(const Record& record)
    {
        const auto parent = m_names.find(fs::path(record.path).parent_path());
        if (isVolatile(record.path) || parent == m_names.end())
            return;
        const std::size_t folder = parent->second;
        std::size_t node = 0;
        if (record.kind == Kind::createFile || record.kind == Kind::createFolder) {
            node = add(record.path, record.kind == Kind::createFolder);
        } else {
            const auto name = m_names.find(record.path);
            require(name != m_names.end(), "{} was created without a record", record.path);
            node = name->second;
            m_names.erase(name);
        }
        if (record.kind == Kind::rename) {
            require(fs::path(record.bytes).parent_path() == fs::path(record.path).parent_path(),
                    "{} was moved to another folder", record.path);
            m_names[record.bytes] = node;
        }
        m_nodes[folder].pending.push_back({&record, node});
    }

    void collect(FileTree& files, const std::string& path, std::size_t index, Random* random) const
    {
        Node node = m_nodes[index];
        // Of the changes that are not synchronized, the disk holds none, half or all.
        std::bernoulli_distribution share(
            random != nullptr ? std::uniform_int_distribution(0, 2)(*random) / 2.0 : 1);
        const auto isHeld = [&] { return random == nullptr || share(*random); };
        std::size_t size = node.bytes.size();
        for (const Change& change : m_nodes[index].pending) {
            const Record& record = *change.record;
            if (!node.isFolder)
                size = record.kind == Kind::truncate ? record.offset
                                                     : std::max(size, record.offset + record.byteCount);
            if (isHeld())
                node.apply(change);
            else if (!node.isFolder && isHeld())
                node.apply(change, random);
        }
        if (node.isFolder) {
            if (index != 0)
                files[path] = std::nullopt;
            for (const auto& [name, entry] : node.entries)
                collect(files, path.empty() ? name : path + "/" + name, entry, random);
            return;
        }
        if (node.bytes.size() < size && random != nullptr && flip(*random))
            node.bytes.resize(size);
        // An index may be left behind, with any content.
        if (path.ends_with(".sqlite") && random != nullptr && flip(*random))
            files[path + "-shm"] = std::string(1 << 15, static_cast<char>((*random)()));
        files[path] = std::move(node.bytes);
    }

    /// The first is the device's folder.
    std::vector<Node> m_nodes;
    std::map<std::string, std::size_t> m_names;
};

RecordedDisk::RecordedDisk(ThrowawayDevice& device, fs::path file)
    : m_device(device), m_file(std::move(file)), m_before(readFiles(device))
{
    device.write(m_file, "");
    device.setEnvironment(FileRecord::fileVariable, m_file);
}

void RecordedDisk::end()
{
    m_device.setEnvironment(FileRecord::fileVariable, "/dev/null");
    const std::string bytes = ThrowawayDevice::read(m_file);
    for (std::size_t begin = 0; begin < bytes.size();) {
        Record& record = m_records.emplace_back();
        bytes.copy(reinterpret_cast<char*>(static_cast<FileRecord*>(&record)), sizeof(FileRecord), begin);
        record.path = bytes.substr(begin + sizeof(FileRecord), record.pathLength);
        record.bytes = bytes.substr(begin + sizeof(FileRecord) + record.pathLength, record.byteCount);
        begin += sizeof(FileRecord) + record.pathLength + record.byteCount;
        record.end = begin;
        m_positions.push_back(begin);
    }
    const FileTree recorded = diskAt(bytes.size()).files(nullptr);
    const FileTree present = readFiles(m_device);
    const auto [left, right] =
        std::mismatch(recorded.begin(), recorded.end(), present.begin(), present.end());
    require(left == recorded.end() && right == present.end(), "{} was changed without a record",
            left != recorded.end() ? left->first : (right != present.end() ? right->first : ""));
}

RecordedDisk::Disk RecordedDisk::diskAt(std::uint64_t position, const Honors& honors) const
{
    Disk disk(m_device.path("data").parent_path(), m_before);
    for (const Record& record : m_records) {
        if (record.end > position)
            break;
        disk.apply(record, honors);
    }
    return disk;
}

FileTree RecordedDisk::filesAfterCut(std::uint64_t position, Random& random) const
{
    return diskAt(position).files(&random);
}

std::optional<FileTree> RecordedDisk::filesAfterLoss(std::uint64_t position, std::size_t number,
                                                     const Honors& honors) const
{
    Disk disk = diskAt(position, honors);
    if (number > 0 && !disk.lose(number - 1))
        return std::nullopt;
    return disk.files(nullptr);
}
