#include "Tests/Trials/RecordedDisk.h"

#include "Tests/Trials/TrialDevice.h"

#include <algorithm>

namespace fs = std::filesystem;
using Kind = FileRecord::Kind;
using Random = std::mt19937;

namespace {

constexpr const char* recordedFolders[] = {"data", "policy"};
constexpr std::size_t sectorBytes = 512;

bool changesFolder(Kind kind)
{
    return kind != Kind::write && kind != Kind::truncate && kind != Kind::synchronize;
}

/// Whether a file is meaningless after a power cut: the index of a write-ahead log, or a file of the runtime
/// folder.
bool isVolatile(std::string_view path)
{
    return path.ends_with("-shm") || path.find("/run/") != std::string_view::npos;
}

/// Honors all synchronizations.
bool everything(std::string_view /*path*/)
{
    return true;
}

/// How much of a file's or folder's unsynchronized changes the disk holds.
enum class Share { nothing, everything, something };

bool flip(Random& random)
{
    return std::uniform_int_distribution(0, 1)(random) == 1;
}

/// Applies the change of a file's content, or only random sectors of it.
void applyTo(std::string& bytes, const FileRecord& record, std::string_view data, Random* tearing)
{
    if (record.kind == Kind::truncate) {
        bytes.resize(record.offset);
        return;
    }
    for (std::size_t begin = 0; begin < data.size();) {
        const std::size_t offset = record.offset + begin;
        const std::size_t count = std::min(data.size() - begin, sectorBytes - offset % sectorBytes);
        if (tearing == nullptr || flip(*tearing)) {
            bytes.resize(std::max(bytes.size(), offset + count));
            bytes.replace(offset, count, data, begin, count);
        }
        begin += count;
    }
}

void applyTo(std::map<std::string, std::size_t>& entries, const FileRecord& record, const std::string& path,
             const std::string& newPath, std::size_t node)
{
    const std::string name = fs::path(path).filename();
    if (record.kind == Kind::rename || record.kind == Kind::remove)
        entries.erase(name);
    if (record.kind != Kind::remove)
        entries[record.kind == Kind::rename ? fs::path(newPath).filename().string() : name] = node;
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
                files[folder / entry.path().lexically_relative(device.path(folder.native()))] =
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

std::size_t RecordedDisk::Disk::add(const std::string& path, bool isFolder)
{
    nodes.push_back({.isFolder = isFolder, .bytes = {}, .entries = {}, .pending = {}});
    return names[path] = nodes.size() - 1;
}

RecordedDisk::RecordedDisk(ThrowawayDevice& device, fs::path file) : m_device(device), m_file(std::move(file))
{
    m_begin.add(device.path("data").parent_path(), true);
    for (const auto& [relative, content] : readFiles(device)) {
        const fs::path path = device.path(relative);
        const std::size_t node = m_begin.add(path, !content);
        m_begin.nodes[node].bytes = content.value_or("");
        m_begin.nodes[m_begin.names.at(path.parent_path())].entries[path.filename()] = node;
    }
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
    FileTree recorded;
    diskAt(bytes.size(), everything).collect(recorded, "", 0, nullptr);
    const FileTree present = readFiles(m_device);
    const auto [left, right] =
        std::mismatch(recorded.begin(), recorded.end(), present.begin(), present.end());
    require(left == recorded.end() && right == present.end(), "{} was changed without a record",
            left != recorded.end() ? left->first : (right != present.end() ? right->first : ""));
}

RecordedDisk::Disk RecordedDisk::diskAt(std::uint64_t position, const Honors& honors) const
{
    Disk disk = m_begin;
    for (const Record& record : m_records) {
        if (record.end > position)
            break;
        disk.apply(record, honors);
    }
    return disk;
}

void RecordedDisk::Disk::apply(const Record& record, const Honors& honors)
{
    if (changesFolder(record.kind)) {
        applyEntry(record);
        return;
    }
    const auto found = names.find(record.path);
    if (found == names.end())
        return;
    Node& node = nodes[found->second];
    if (record.kind != Kind::synchronize)
        node.pending.push_back({&record, 0});
    else if (honors(std::string_view(record.path).substr(names.begin()->first.size())))
        node.synchronize(record.offset);
}

void RecordedDisk::Node::synchronize(std::uint64_t position)
{
    const auto end = std::stable_partition(
        pending.begin(), pending.end(), [&](const Change& change) { return change.record->end <= position; });
    for (auto change = pending.begin(); change != end; ++change) {
        if (isFolder)
            applyTo(entries, *change->record, change->record->path, change->record->bytes, change->node);
        else
            applyTo(bytes, *change->record, change->record->bytes, nullptr);
    }
    pending.erase(pending.begin(), end);
}

void RecordedDisk::Disk::applyEntry(const Record& record)
{
    const auto parent = names.find(fs::path(record.path).parent_path());
    if (isVolatile(record.path) || parent == names.end())
        return;
    const std::size_t folder = parent->second;
    std::size_t node = 0;
    if (record.kind == Kind::createFile || record.kind == Kind::createFolder) {
        node = add(record.path, record.kind == Kind::createFolder);
    } else {
        const auto name = names.find(record.path);
        require(name != names.end(), "{} was created without a record", record.path);
        node = name->second;
        names.erase(name);
    }
    if (record.kind == Kind::rename) {
        require(names.find(fs::path(record.bytes).parent_path()) ==
                    names.find(fs::path(record.path).parent_path()),
                "{} was moved to another folder", record.path);
        names[record.bytes] = node;
    }
    nodes[folder].pending.push_back({&record, node});
}

void RecordedDisk::Disk::collect(FileTree& files, const std::string& path, std::size_t index,
                                 Random* random) const
{
    const Node& node = nodes[index];
    const auto share =
        random != nullptr ? Share(std::uniform_int_distribution(0, 2)(*random)) : Share::everything;
    std::string bytes = node.bytes;
    std::size_t size = bytes.size();
    auto entries = node.entries;
    for (const Change& change : node.pending) {
        const Record* const record = change.record;
        const bool isWhole = share == Share::everything || (share == Share::something && flip(*random));
        if (node.isFolder) {
            if (isWhole)
                applyTo(entries, *record, record->path, record->bytes, change.node);
            continue;
        }
        size = record->kind == Kind::truncate ? record->offset
                                              : std::max(size, record->offset + record->byteCount);
        if (isWhole || (share == Share::something && flip(*random)))
            applyTo(bytes, *record, record->bytes, isWhole ? nullptr : random);
    }
    if (!node.isFolder) {
        if (bytes.size() < size && random != nullptr && flip(*random))
            bytes.resize(size);
        // An index may be left behind, with any content.
        if (path.ends_with(".sqlite") && random != nullptr && flip(*random))
            files[path + "-shm"] = std::string(1 << 15, static_cast<char>((*random)()));
        files[path] = std::move(bytes);
        return;
    }
    if (index != 0)
        files[path] = std::nullopt;
    for (const auto& [name, entry] : entries)
        collect(files, path.empty() ? name : path + "/" + name, entry, random);
}

FileTree RecordedDisk::filesAfterCut(std::uint64_t position, Random& random) const
{
    FileTree files;
    diskAt(position, everything).collect(files, "", 0, &random);
    return files;
}

std::optional<FileTree> RecordedDisk::filesAfterLoss(std::uint64_t position, std::size_t number,
                                                     const Honors& honors) const
{
    Disk disk = diskAt(position, honors);
    if (number > 0 && !disk.lose(number - 1))
        return std::nullopt;
    FileTree files;
    disk.collect(files, "", 0, nullptr);
    return files;
}

bool RecordedDisk::Disk::lose(std::size_t number)
{
    for (Node& node : nodes) {
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
