#include "Platform/Linux/Files/PathWatch.h"
#include "Platform/Error.h"

#include "Platform/Storage/FileDescriptor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sys/inotify.h>
#include <utility>

namespace Platform::Linux::Files {

namespace {

constexpr std::uint32_t folderMoved = IN_ONLYDIR | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t folderItself = folderMoved | IN_ATTRIB;
constexpr std::uint32_t entryReplaced = IN_ONLYDIR | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
/// A written file is reported when its writer closes it, never half-written.
constexpr std::uint32_t entryChanged = entryReplaced | IN_CLOSE_WRITE | IN_ATTRIB;
/// For the parent of a folder that cannot be watched: reports when its mode changes.
constexpr std::uint32_t entryOpened = IN_ONLYDIR | IN_ATTRIB;
/// For a file or link in such a folder. Removing or replacing it changes its link count (IN_ATTRIB).
constexpr std::uint32_t entryItself =
    IN_DONT_FOLLOW | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

/// Does not watch the attributes of a shared (sticky) folder such as /tmp: IN_ATTRIB would also report, and
/// so wake us for, every change to any file in it.
std::uint32_t eventsOfFolder(const Storage::PathStep& folder)
{
    return (folder.status.st_mode & S_ISVTX) != 0 ? folderMoved : folderItself;
}

/// Returns whether the walk failed because the process or the system ran out of descriptors or memory.
bool isIncomplete(const std::vector<Storage::PathStep>& steps)
{
    return std::any_of(steps.begin(), steps.end(), [](const Storage::PathStep& step) {
        return step.error == EMFILE || step.error == ENFILE || step.error == ENOMEM;
    });
}

/// Differs after each change of the file, of its owner or mode, or of a folder or link on its path.
void addStatus(std::string& text, const std::vector<Storage::PathStep>& steps)
{
    for (const Storage::PathStep& step : steps) {
        const auto& status = step.status;
        fmt::format_to(std::back_inserter(text), "{}:{}:{}:{}:{}:{};", static_cast<int>(step.kind),
                       step.error, status.st_dev, status.st_ino, status.st_mode, status.st_uid);
        // The times of a folder also change for its other entries.
        if (step.kind == Storage::PathStep::Kind::other)
            fmt::format_to(std::back_inserter(text), "{}:{}.{}:{}.{};", status.st_size, status.st_mtim.tv_sec,
                           status.st_mtim.tv_nsec, status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
    }
}

std::string statusText(const PolicyPlaces& places)
{
    std::string text;
    for (const auto& file : places.files)
        addStatus(text, Storage::walkPath(file));
    if (places.fragments.empty())
        return text;
    const FragmentFolder folder = listFragments(places.fragments);
    addStatus(text, folder.steps);
    for (const FragmentFolder::Entry& entry : folder.entries) {
        text += entry.name;
        addStatus(text, Storage::walkPath(places.fragments / entry.name));
    }
    return text;
}

} // namespace

PathWatch::PathWatch(FileSystemWatcher& watcher, std::vector<std::filesystem::path> files,
                     const AdapterLog& log, std::function<void()> onChange)
    : PathWatch(watcher, PolicyPlaces{.files = std::move(files)}, log, std::move(onChange), PeriodicCheck{})
{}

PathWatch::PathWatch(FileSystemWatcher& watcher, PolicyPlaces places, const AdapterLog& log,
                     std::function<void()> onChange, PeriodicCheck check)
    : m_watcher(watcher), m_places(std::move(places)), m_check(check), m_errorLine(log)
{
    // The handler is not called before rearm() sets the first targets.
    m_handler =
        watcher.addHandler([this, onChange = std::move(onChange)](std::uint32_t mask, std::string_view name) {
            if (mask == 0 ? !hasStatusChanged() : !isRelevant(name))
                return;
            rearm();
            onChange();
        });
    rearm();
}

/// `name` is empty for the watched folder or file itself, and after lost events.
bool PathWatch::isRelevant(std::string_view name)
{
    const std::lock_guard lock(m_mutex);
    return name.empty() || m_watchedNames.find(name) != m_watchedNames.end() ||
           (!m_places.fragments.empty() && isFragmentName(name));
}

/// Watches every folder and link on the current paths. Walks the paths again after adding the
/// watches to detect what was replaced meanwhile.
void PathWatch::rearm()
{
    const auto isSame = [](const Storage::PathStep& left, const Storage::PathStep& right) {
        return left.path == right.path && left.kind == right.kind &&
               left.status.st_dev == right.status.st_dev && left.status.st_ino == right.status.st_ino;
    };
    const std::lock_guard lock(m_mutex);
    // Bounded in case links are swapped faster than this follows them; the next event tries again.
    constexpr int maximumAttempts = 10;
    Walk walk = walkAll();
    if (m_isArmed && isIncomplete(walk.steps))
        return; // The existing watches still report the next change.
    m_isArmed = true;
    std::set<std::filesystem::path> unwatched;
    std::vector<FileSystemWatcher::Failure> failures;
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        failures = m_watcher.setTargets(m_handler, targetsFor(walk, unwatched));
        std::set<std::filesystem::path> failed;
        for (const auto& failure : failures)
            failed.insert(failure.path);
        Walk now = walkAll();
        if (isIncomplete(now.steps))
            break;
        const bool isSettled = failed == unwatched && std::equal(walk.steps.begin(), walk.steps.end(),
                                                                 now.steps.begin(), now.steps.end(), isSame);
        walk = std::move(now);
        unwatched = std::move(failed);
        if (isSettled)
            break;
    }
    const bool isCheckNeeded = m_check.isNeeded != nullptr && m_check.isNeeded(walk.steps);
    m_status = isCheckNeeded ? statusText(m_places) : std::string();
    m_watcher.setPeriodic(m_handler, isCheckNeeded, m_check.interval);
    report(failures);
}

/// Returns whether a file changed since the last check, and remembers its status.
bool PathWatch::hasStatusChanged()
{
    std::string now = statusText(m_places);
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_status, now) != now;
}

PathWatch::Walk PathWatch::walkAll() const
{
    Walk walk;
    const auto add = [&walk](const std::vector<Storage::PathStep>& steps) {
        walk.steps.insert(walk.steps.end(), steps.begin(), steps.end());
    };
    for (const auto& file : m_places.files)
        add(Storage::walkPath(file));
    if (m_places.fragments.empty())
        return walk;
    const FragmentFolder folder = listFragments(m_places.fragments);
    add(folder.steps);
    if (folder.steps.back().kind == Storage::PathStep::Kind::folder)
        walk.fragments = folder.steps.back().path;
    // The folder reports the changes of all other fragments.
    for (const FragmentFolder::Entry& entry : folder.entries) {
        if (entry.isLink)
            add(Storage::walkPath(m_places.fragments / entry.name));
    }
    return walk;
}

/// Returns the targets for `walk`. `unwatched` are the paths that could not be watched; their parents come
/// first, so a change of mode while the other watches are added is reported.
std::vector<FileSystemWatcher::Target> PathWatch::targetsFor(const Walk& walk,
                                                             const std::set<std::filesystem::path>& unwatched)
{
    std::vector<FileSystemWatcher::Target> targets;
    m_watchedNames.clear();
    for (const auto& path : unwatched) {
        targets.push_back({path.parent_path(), entryOpened});
        m_watchedNames.insert(path.filename());
    }
    if (!walk.fragments.empty())
        targets.push_back({walk.fragments, entryChanged});
    for (const Storage::PathStep& step : walk.steps) {
        if (step.kind == Storage::PathStep::Kind::folder) {
            targets.push_back({step.path, eventsOfFolder(step)});
            continue;
        }
        const auto folder = step.path.parent_path();
        targets.push_back(
            {folder, step.kind == Storage::PathStep::Kind::other ? entryChanged : entryReplaced});
        m_watchedNames.insert(step.path.filename());
        if (unwatched.find(folder) != unwatched.end())
            targets.push_back({step.path, entryItself});
    }
    return targets;
}

void PathWatch::report(const std::vector<FileSystemWatcher::Failure>& failures)
{
    if (failures.empty()) {
        m_errorLine.reset();
        return;
    }
    const auto& [path, error] = failures.front();
    if (error == ENOSPC)
        m_errorLine.report(
            fmt::format("Changes to {} may go unnoticed: this user has too many inotify watches; raise "
                        "fs.inotify.max_user_watches",
                        path));
    else
        m_errorLine.report(fmt::format(
            "Changes in {} may go unnoticed: it cannot be watched: {}; allow this user to read it "
            "(chmod o+rx)",
            path, errorText(error)));
}

} // namespace Platform::Linux::Files
