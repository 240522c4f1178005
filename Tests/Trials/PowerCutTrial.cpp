#include "Tests/Trials/RecordedDisk.h"
#include "Tests/Trials/TestBed.h"

#include <deque>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Honors = RecordedDisk::Honors;

/// What the programs have acknowledged up to a position of a recording.
struct Acknowledged {
    std::uint64_t position = 0;
    /// Index of the installed policy and of the applied one.
    std::size_t installed = 0;
    bool isPolicyUncertain = false;
    std::size_t applied = 0;
    std::int64_t version = 0;
    std::vector<std::string> pushes;
    /// Uploaded; empty before.
    std::string token;
    bool isAuthorized = false;
};

/// A recording of programs at work, and what they acknowledged.
struct Episode {
    RecordedDisk disk;
    std::vector<Acknowledged> acknowledged;
    /// The content of the store that is damaged at the start, if any.
    std::string damaged;
};

/// A kind of synchronization, by path relative to the device's folder.
struct Synchronization {
    const char* name;
    bool (*includes)(std::string_view path);
};

constexpr Synchronization synchronizations[] = {
    {"write-ahead logs", [](std::string_view path) { return path.ends_with("-wal"); }},
    {"databases", [](std::string_view path) { return path.ends_with(".sqlite"); }},
    {"state folders",
     [](std::string_view path) { return path == "/data/quorvane-mdm" || path.ends_with("/groups"); }},
    {"the folder above the state folder", [](std::string_view path) { return path == "/data"; }},
    {"the folder above new folders", [](std::string_view path) { return path.empty(); }},
    {"policy files", [](std::string_view path) { return path.starts_with("/policy/"); }},
    {"the policy folder", [](std::string_view path) { return path == "/policy"; }},
};

class PowerCuts {
public:
    explicit PowerCuts(const TrialPrograms& programs) : m_testBed(programs)
    {
        m_testBed.end();
        m_testBed.backend().takeRequests();
        replaceFiles(m_device, {});
        recordFirstStart();
        recordDamagedStore();
    }

    /// Cuts the power at a random moment and requires that nothing acknowledged is lost.
    void cut(std::mt19937& random, bool isStarted)
    {
        const Episode& episode = m_episodes[random() % m_episodes.size()];
        const auto& positions = episode.disk.positions();
        const std::uint64_t position = positions[random() % positions.size()];
        check(episode, position, episode.disk.filesAfterCut(position, random), isStarted);
    }

    /// After each file operation, cuts the power with each single loss, and with none. Returns the number of
    /// cuts.
    int cutEverywhere(const Honors& honors)
    {
        int count = 0;
        for (const Episode& episode : m_episodes) {
            for (const std::uint64_t position : episode.disk.positions()) {
                for (std::size_t number = 0;; ++number, ++count) {
                    const auto files = episode.disk.filesAfterLoss(position, number, honors);
                    if (!files)
                        break;
                    check(episode, position, *files, false);
                }
            }
        }
        return count;
    }

private:
    /// Requires that nothing acknowledged is lost after a cut at `position` that leaves `files`.
    void check(const Episode& episode, std::uint64_t position, const FileTree& files, bool isStarted)
    {
        const auto next = std::find_if(episode.acknowledged.begin(), episode.acknowledged.end(),
                                       [=](const Acknowledged& each) { return each.position > position; });
        const Acknowledged& acknowledged = *std::prev(next);
        replaceFiles(m_device, files);
        try {
            requirePolicy(files, acknowledged);
            if (!episode.damaged.empty())
                removeDamaged(files, episode.damaged);
            const bool hasState = files.find("data/quorvane-mdm") != files.end();
            const StoredState state = hasState ? m_device.inspect() : StoredState();
            requireStored(state, acknowledged);
            if (isStarted)
                requireStart(files, state, acknowledged);
        } catch (const std::exception& error) {
            throw Violation(
                fmt::format("cut at {} of {}: {}", position, episode.disk.position(), error.what()));
        }
    }

    Episode& record(std::string damaged = {})
    {
        Episode& episode = m_episodes.emplace_back(
            Episode{{m_device, m_folder.path(fmt::format("recording{}", m_episodes.size()))},
                    {},
                    std::move(damaged)});
        note();
        return episode;
    }
    /// Adds what is acknowledged now, or after the next file operation.
    void note(bool isAfterNext = false)
    {
        m_now.position = m_episodes.back().disk.position() + (isAfterNext ? 1 : 0);
        m_episodes.back().acknowledged.push_back(m_now);
    }

    void runConsole(const std::vector<std::string>& arguments)
    {
        require(m_device.startConsole(arguments)->waitForExit() == 0, "qvctl {} failed",
                fmt::join(arguments, " "));
    }
    /// With `isWritten`, another program has written the same file before, without synchronizing it.
    void install(bool isWritten = false)
    {
        const std::string file = m_device.path("run/policy.json");
        m_policies.emplace_back(m_device.policy({fmt::format("app{}", m_policies.size())}));
        m_device.write(file, *m_policies.back());
        if (isWritten) {
            m_now.isPolicyUncertain = true;
            note(true);
            m_device.startProgram({"dd", "if=" + file, "of=" + m_device.policyFile().string()})
                ->waitForExit();
            fs::permissions(m_device.policyFile(), fs::perms(::geteuid() == 0 ? 0644 : 0600));
        }
        runConsole({"config", "set", file});
        noteInstalled();
    }
    void noteInstalled()
    {
        m_now.installed = m_policies.size() - 1;
        m_now.isPolicyUncertain = false;
        note();
    }
    void expectUpdate()
    {
        m_testBed.expectLine("Configuration updated");
        m_now.applied = m_now.installed;
        ++m_now.version;
        note();
    }
    void push()
    {
        const TestBed::Push pushed = m_testBed.push();
        m_testBed.requireWithLog(pushed.isAcknowledged(), "a push was refused: " + pushed.answer);
        m_now.pushes.push_back(pushed.title);
        note();
    }
    void expectUpload()
    {
        m_now.token = m_testBed.takeUpload();
        note();
    }

    void recordFirstStart()
    {
        Episode& episode = record();
        runConsole({"privacy", "grant", "notifications"});
        m_now.isAuthorized = true;
        note();
        install();
        m_testBed.start();
        expectUpdate();
        m_device.window().tap("welcome.getStarted");
        expectUpload();
        for (int i = 0; i < 3; ++i) {
            push();
            install();
            expectUpdate();
            push();
        }
        m_testBed.kill();
        runConsole({"config", "clear"});
        m_policies.emplace_back(std::nullopt);
        noteInstalled();
        install(true);
        m_testBed.start();
        expectUpdate();
        expectUpload();
        push();
        install();
        expectUpdate();
        m_testBed.end();
        episode.disk.end();
    }

    void recordDamagedStore()
    {
        const std::string damaged(10'000, 'x');
        m_device.write(m_device.suiteFile(), damaged);
        m_now.version = 0;
        m_now.applied = 0;
        Episode& episode = record(damaged);
        m_testBed.start();
        expectUpdate();
        expectUpload();
        m_testBed.end();
        episode.disk.end();
    }

    void requirePolicy(const FileTree& files, const Acknowledged& acknowledged) const
    {
        const auto file = files.find("policy/managed.json");
        const auto content = file != files.end() ? file->second : std::nullopt;
        require(acknowledged.isPolicyUncertain ||
                    std::find(m_policies.begin() + static_cast<std::ptrdiff_t>(acknowledged.installed),
                              m_policies.end(), content) != m_policies.end(),
                "the policy file is missing, incomplete or older than acknowledged");
    }

    /// Requires that the damaged store is there, moved aside or not yet, and removes it.
    void removeDamaged(const FileTree& files, const std::string& damaged) const
    {
        int count = 0;
        for (const auto& [path, content] : files) {
            const bool isMoved = path.find(".corrupt-") != std::string::npos;
            if (content != damaged && !isMoved)
                continue;
            fs::remove(m_device.path(path));
            count += content == damaged ? 1 : 0;
        }
        require(count == 1, "the damaged store was lost");
    }

    void requireStored(const StoredState& state, const Acknowledged& acknowledged) const
    {
        require(state.configVersion >= acknowledged.version,
                "version {} was applied but version {} is stored", acknowledged.version, state.configVersion);
        if (state.snapshot) {
            const auto& apps = state.snapshot->config.allowedAppBundleIds;
            const std::size_t number =
                apps.empty() ? 0 : std::stoul(std::string(apps[0].substr(apps[0].rfind("app") + 3)));
            require(number >= acknowledged.applied, "policy {} was applied but policy {} is stored",
                    acknowledged.applied, number);
        }
        for (const std::string& title : acknowledged.pushes)
            require(state.hasPush(title), "{} was acknowledged but is not in the history", title);
        require(acknowledged.token.empty() || state.deviceToken == acknowledged.token,
                "the uploaded token is not the stored one");
        require(state.isAuthorized || !acknowledged.isAuthorized, "the permission was lost");
    }

    void requireStart(const FileTree& files, const StoredState& state, const Acknowledged& acknowledged)
    {
        m_testBed.backend().takeRequests(); // Of an earlier start.
        m_testBed.start();
        m_testBed.expectLine("Configuration manager initialized");
        const bool isConfigured = files.find("policy/managed.json") != files.end();
        if (isConfigured && !acknowledged.token.empty()) {
            require(m_testBed.takeUpload() == acknowledged.token, "the device token has changed");
            m_testBed.requireHealthy(state);
        }
        m_testBed.end();
    }

    const TemporaryFolder m_folder;
    TestBed m_testBed;
    TrialDevice& m_device = m_testBed.device();
    /// In the order of their installation; absent if there was no policy file.
    std::vector<std::optional<std::string>> m_policies{std::nullopt};
    Acknowledged m_now;
    std::deque<Episode> m_episodes;
};

} // namespace

void powerCutTrial(const TrialPrograms& programs, int cuts, unsigned seed)
{
    fmt::print("seed {}\n", seed);
    std::mt19937 random(seed);
    PowerCuts trial(programs);
    const int count = trial.cutEverywhere({});
    constexpr int startInterval = 20;
    for (int number = 1; number <= cuts; ++number)
        trial.cut(random, number % startInterval == 0);
    fmt::print("{} cuts in order and {} at random, {} of them followed by a start: nothing lost\n", count,
               cuts, cuts / startInterval);
    for (const Synchronization& missing : synchronizations) {
        std::string example;
        try {
            trial.cutEverywhere([&](std::string_view path) { return !missing.includes(path); });
        } catch (const Violation& violation) {
            example = violation.what();
        }
        require(!example.empty(), "a missing synchronization of {} is not noticed", missing.name);
        fmt::print("{} not synchronized: {}\n", missing.name, example);
    }
}
