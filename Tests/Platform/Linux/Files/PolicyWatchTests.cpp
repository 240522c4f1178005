#include "Platform/Linux/Files/PathWatch.h"
#include "Tests/Fakes/MappedFile.h"
#include "Tests/Platform/Linux/Files/ManagedPolicyFileTest.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <fmt/format.h>

#include <semaphore>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/vfs.h>

using namespace Platform;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
namespace fs = std::filesystem;

namespace {
/// The type that statfs(2) reports for a path, instead of the real one.
std::map<std::string, std::uint32_t> simulatedTypes;
} // namespace

extern "C" int statfs(const char* path, struct statfs* status) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_statfs, path, status));
    if (const auto simulated = simulatedTypes.find(path); simulated != simulatedTypes.end())
        status->f_type = static_cast<decltype(status->f_type)>(simulated->second);
    return result;
}

namespace {

TEST(RemoteFileSystemTest, IsFoundOnAnyStepOfThePath)
{
    using Kind = PathStep::Kind;
    constexpr std::uint32_t ext4 = 0xEF53;
    struct Case {
        const char* name;
        std::uint32_t type;
        Kind kind;
        /// The device of the second step; the first one is on device 1.
        dev_t device;
        bool isRemote;
    };
    const Case cases[] = {
        {"local", ext4, Kind::folder, 2, false},
        {"overlayfs", 0x794C7630, Kind::folder, 2, false},
        {"NFS", 0x6969, Kind::folder, 2, true},
        {"FUSE", 0x65735546, Kind::other, 2, true},
        {"behind a link", 0x6969, Kind::link, 2, false},
        {"missing", 0x6969, Kind::missing, 2, false},
        {"device of the first step", 0x6969, Kind::folder, 1, false},
    };
    for (const Case& row : cases) {
        simulatedTypes = {{"/", ext4}, {"/tmp", row.type}};
        std::vector<PathStep> steps{{.path = "/", .kind = Kind::folder}, {.path = "/tmp", .kind = row.kind}};
        steps[0].status.st_dev = 1;
        steps[1].status.st_dev = row.device;
        EXPECT_EQ(hasRemoteFiles(steps), row.isRemote) << row.name;
    }
    simulatedTypes.clear();
}

TEST_P(PolicyPartTest, DetectsEveryKindOfChange)
{
    struct Case {
        const char* name;
        const char* change;
        std::optional<PropertyList> expected;
    };
    const Case cases[] = {
        {"folders created later", "mkdir -p ${F%/*}; policy 1 > $F", dictionary(1)},
        {"written in place", "policy 2 > $F", dictionary(2)},
        {"renamed", "policy 3 > new; mv new $F", dictionary(3)},
        {"deleted", "rm $F", std::nullopt},
        {"link created", "mkdir -m 1755 other; policy 4 > other/1; ln -s $PWD/other/1 $F", dictionary(4)},
        {"behind the link", "policy 5 > other/1", dictionary(5)},
        {"link swapped",
         "policy 6 > other/2; ln -s $(realpath --relative-to ${F%/*} other/2) link; mv -T link $F",
         dictionary(6)},
        {"no longer trusted", "chmod 666 other/2", GetParam().isFragment ? dictionary(6) : std::nullopt},
        {"trusted again", "chmod 600 other/2", dictionary(6)},
        {"folder moved away", "mv etc gone", std::nullopt},
        {"folder created again", "mkdir -p ${F%/*}; policy 7 > $F", dictionary(7)},
        {"folder replaced by a link", "cp -r etc new; policy 8 > new${F#etc}; mv etc old; ln -s new etc",
         dictionary(8)},
        {"another file takes precedence",
         "echo '<plist><dict><key>a</key><integer>9</integer></dict></plist>' > $ABOVE", dictionary(9)},
        {"that file moved away", "mv $ABOVE away", dictionary(8)},
    };
    watch();
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    for (const Case& row : cases)
        EXPECT_TRUE(
            follows([&] { shell("ABOVE=etc/" + GetParam().above + "; " + row.change); }, row.expected))
            << row.name;
}

TEST_P(PolicyPartTest, ChangeWithoutEventIsFoundByThePeriodicCheck)
{
    folder.write(file, json(1));
    std::atomic<int> changeCount = 0;
    onChange = [&] { ++changeCount; };
    std::optional<PathWatch> watch;
    FileSystemWatcher ownWatcher; // Destroyed before what it calls.
    watch.emplace(
        ownWatcher, places, log.adapterLog, [&] { noteChange(); },
        PathWatch::PeriodicCheck{[](const std::vector<PathStep>&) { return true; },
                                 std::chrono::milliseconds(10)});
    for (int round = 1; round <= 3; ++round) {
        overwriteWithoutEvents(folder.path(file), json(round + 1));
        EXPECT_TRUE(eventually([&] { return changeCount >= round; })) << round;
    }
    EXPECT_EQ(changeCount, 3);
}

/// Makes the test and the watcher access files as an unprivileged user. Commands run as root.
struct UnprivilegedThread {
    static constexpr uid_t user = 12345;
    UnprivilegedThread() { ::setfsuid(user); }
};

class ClosedPolicyFolderTest : UnprivilegedThread, public ManagedPolicyFileTest {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "needs root to make a folder unreadable";
        shell("chown root .; mkdir -p etc/quorvane/managed.d; " + open);
    }
    void TearDown() override { ::setfsuid(::geteuid()); }
    [[nodiscard]] std::ptrdiff_t countWatchLines()
    {
        const auto lines = log.takeLines();
        return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("cannot be watched: Permission denied") != std::string::npos;
        });
    }

    const std::string open = "chmod 755 etc/quorvane/managed.d etc/quorvane etc .";
};

TEST_F(ClosedPolicyFolderTest, IsLoggedOnceAndReadAfterItBecomesReadable)
{
    struct Case {
        const char* close;
        /// Whether the file is still readable, so it can be watched.
        bool isFileOpen;
        const char* file = "managed.json";
    };
    const Case cases[] = {
        {"chmod 700 etc/quorvane", false},
        {"chmod 711 etc/quorvane", true},
        {"chmod 711 etc", true},
        {"chmod 711 etc; chmod 700 etc/quorvane", false},
        {"chmod 1777 etc; chmod 700 etc/quorvane", false},
        {"chmod 700 .", false},
        {"chmod 700 etc/quorvane/managed.d", false, "managed.d/50.json"},
        {"chmod 711 etc/quorvane/managed.d", false, "managed.d/50.json"},
        {"chmod 711 etc/quorvane", true, "managed.d/50.json"},
    };
    int value = 0;
    const auto write = [&](const std::string& how) {
        shell("policy " + std::to_string(++value) + " > $F.new; " + how);
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.close);
        file = std::string("etc/quorvane/") + row.file;
        write("mv $F.new $F");
        shell(row.close);
        ManagedPolicyFile fresh(places, log.adapterLog);
        FileSystemWatcher ownWatcher;
        // The test waits for changes of `fresh`, not of `policy`.
        fresh.watch(ownWatcher, [this] { noteChange(); });
        const auto follows = [&](const char* how) {
            write(how);
            return eventually([&] { return fresh.dictionary() == dictionary(value); });
        };
        EXPECT_EQ(countWatchLines(), 1);
        EXPECT_EQ(fresh.dictionary(), row.isFileOpen ? dictionary(value) : std::nullopt);
        if (row.isFileOpen) {
            EXPECT_TRUE(follows("cat $F.new > $F; rm $F.new"));
        }
        EXPECT_TRUE(follows(("mv $F.new $F; " + open).c_str()));
        EXPECT_TRUE(follows("mv $F.new $F")) << "watched again";
        EXPECT_EQ(countWatchLines(), 0);
        shell(row.close);
        EXPECT_TRUE(eventually([&] { return countWatchLines() == 1; })) << "closed again";
        shell(open + "; rm $F");
    }
}

/// Returns the inotify(7) events that are watched in a folder; 0 if it is not watched.
std::uint32_t watchMask(const fs::path& path)
{
    struct stat status {};
    ::stat(path.c_str(), &status);
    std::uint32_t mask = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(entry.path());
        for (std::string line; std::getline(info, line);) {
            if (line.find(fmt::format("ino:{:x} ", status.st_ino)) != std::string::npos)
                mask |=
                    static_cast<std::uint32_t>(std::stoul(line.substr(line.find("mask:") + 5), nullptr, 16));
        }
    }
    return mask;
}

TEST_F(ManagedPolicyFileTest, WatchesNoMoreThanNeeded)
{
    shell(
        "mkdir first second etc; chmod 1755 etc; ln -s ../first etc/quorvane; policy 1 > first/managed.json; "
        "policy 2 > second/managed.json");
    watch();
    EXPECT_EQ(policy.dictionary(), dictionary(1));
    EXPECT_NE(watchMask(folder.path("first")), 0U);
    EXPECT_TRUE(follows([&] { shell("ln -s ../second new; mv -T new etc/quorvane"); }, dictionary(2)));
    EXPECT_EQ(watchMask(folder.path("first")), 0U);
    EXPECT_NE(watchMask(folder.path("etc")) & IN_MOVE_SELF, 0U);
    EXPECT_EQ(watchMask(folder.path("etc")) & IN_ATTRIB, 0U) << "every file in a shared folder would wake it";
    const int handler = watcher.addHandler([](std::uint32_t, std::string_view) {});
    EXPECT_THAT(watcher.setTargets(handler, {{folder.path("none"), IN_ATTRIB},
                                             {folder.path("first/managed.json/none"), IN_ATTRIB}}),
                testing::IsEmpty());
}

TEST_F(ManagedPolicyFileTest, IsReportedOnceAndDespiteLostEvents)
{
    file = "etc/quorvane/managed.d/50.json";
    std::atomic<int> changeCount = 0;
    std::binary_semaphore isBlocked(0);
    std::binary_semaphore isFlooded(0);
    std::counting_semaphore<> isFlushed(0); // Released for lost events, too.
    onChange = [&] {
        if (++changeCount == 2) {
            isBlocked.release();
            isFlooded.acquire();
        }
    };
    shell("mkdir -p flush ${F%/*}; policy 1 > $F; : > $F~; : > ${F%/*}/60.txt");
    FileSystemWatcher ownWatcher; // Destroyed before what it calls.
    policy.watch(ownWatcher, [this] { noteChange(); });
    EXPECT_EQ(policy.dictionary(), dictionary(1));
    withoutDescriptors([&] { policy.reload(); });
    const int flush = ownWatcher.addHandler([&](std::uint32_t, std::string_view) { isFlushed.release(); });
    ownWatcher.setTargets(flush, {{folder.path("flush"), IN_CREATE}});
    shell("echo other > $F~; echo other > ${F%/*}/60.txt; : > flush/now");
    ASSERT_TRUE(isFlushed.try_acquire_for(std::chrono::seconds(20)));
    EXPECT_EQ(changeCount, 0) << "files of other names do not matter";
    EXPECT_TRUE(follows([&] { folder.replace(file, json(2)); }, dictionary(2)));
    EXPECT_TRUE(eventually([&] { return changeCount > 0; }));
    EXPECT_EQ(changeCount, 1);
    folder.replace(file, json(3));
    ASSERT_TRUE(isBlocked.try_acquire_for(std::chrono::seconds(20)));
    EXPECT_EQ(policy.dictionary(), dictionary(3));
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    for (int count = 0; count <= limit; ++count) // Equal events in a row are queued as one.
        ::chmod(folder.path(count % 2 == 0 ? file + "~" : "etc/quorvane/managed.d/60.txt").c_str(), 0600);
    folder.replace(file, json(4));
    isFlooded.release();
    EXPECT_TRUE(eventually([&] { return policy.dictionary() == dictionary(4); }));
}

/// A policy file for an isolated process, which may start a thread only after it was created.
struct IsolatedPolicy {
    TemporaryFolder folder;
    RecordingUnifiedLog log;
    ManagedPolicyFile policy{{.files = {folder.path("etc/managed.json")}}, log.adapterLog};
    std::binary_semaphore isChanged{0};
    FileSystemWatcher watcher;

    void watch()
    {
        policy.watch(watcher, [this] { isChanged.release(); });
    }
};

TEST(ManagedPolicyWatchTest, ReloadWatchesWhatWasMountedMeanwhile)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "requires root, whose folders are not trusted in a user namespace";
    const auto isSeen = runIsolated(CLONE_NEWNS, [] {
        IsolatedPolicy isolated;
        isolated.folder.write("etc/managed.json", "{}");
        isolated.watch();
        if (::mount("tmpfs", isolated.folder.path("etc").c_str(), "tmpfs", 0, "mode=755") != 0)
            return false;
        isolated.policy.reload();
        isolated.folder.write("etc/managed.json", "[");
        return isolated.isChanged.try_acquire_for(std::chrono::seconds(20));
    });
    EXPECT_TRUE(isSeen.value_or(true));
}

TEST(ManagedPolicyWatchTest, NamesTheLimitOfWatches)
{
    const auto isNamed = runIsolated(CLONE_NEWUSER, [] {
        std::ofstream("/proc/sys/user/max_inotify_watches") << 2;
        IsolatedPolicy isolated;
        isolated.watch();
        const auto lines = isolated.log.takeLines();
        return lines.size() == 1 && lines[0].find("raise fs.inotify.max_user_watches") != std::string::npos;
    });
    EXPECT_TRUE(isNamed.value_or(true));
}

} // namespace
