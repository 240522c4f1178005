#include "Platform/Linux/Files/PathWatch.h"
#include "Tests/Fakes/MappedFile.h"
#include "Tests/Platform/Linux/Files/ManagedPolicyFileTest.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <semaphore>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
namespace fs = std::filesystem;

namespace {

TEST_P(PolicyPartTest, DetectsEveryKindOfChange)
{
    watch();
    const fs::path file = folder.path(etcFile);
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    EXPECT_TRUE(follows([&] { folder.write(etcFile, json(1)); }, dictionary(1))) << "folders created later";
    EXPECT_TRUE(follows([&] { folder.write(etcFile, json(2)); }, dictionary(2))) << "in place";
    EXPECT_TRUE(follows([&] { folder.replace(etcFile, json(3)); }, dictionary(3))) << "renamed";
    EXPECT_TRUE(follows([&] { fs::remove(file); }, std::nullopt)) << "deleted";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("other/first.json", json(4));
            fs::create_symlink(folder.path("other/first.json"), file);
        },
        dictionary(4)))
        << "link created";
    EXPECT_TRUE(follows([&] { folder.write("other/first.json", json(5)); }, dictionary(5)))
        << "behind the link";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("other/second.json", json(6));
            fs::create_symlink(fs::relative(folder.path("other/second.json"), file.parent_path()),
                               folder.path("link"));
            fs::rename(folder.path("link"), file);
        },
        dictionary(6)))
        << "link swapped";
    EXPECT_TRUE(follows([&] { ::chmod(folder.path("other/second.json").c_str(), 0666); },
                        GetParam().isFragment ? dictionary(6) : std::nullopt))
        << "no longer trusted";
    EXPECT_TRUE(follows([&] { ::chmod(folder.path("other/second.json").c_str(), 0600); }, dictionary(6)));
    EXPECT_TRUE(follows([&] { fs::rename(folder.path("etc"), folder.path("gone")); }, std::nullopt))
        << "folder moved away";
    EXPECT_TRUE(follows([&] { folder.write(etcFile, json(7)); }, dictionary(7))) << "folder created again";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("new/" + GetParam().file, json(8));
            fs::rename(folder.path("etc"), folder.path("old"));
            fs::create_directory_symlink("new", folder.path("etc"));
        },
        dictionary(8)))
        << "folder replaced by a link";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("etc/" + GetParam().above,
                         "<plist><dict><key>a</key><integer>9</integer></dict></plist>");
        },
        dictionary(9)))
        << "another file takes precedence";
    EXPECT_TRUE(follows([&] { fs::remove(folder.path("etc/" + GetParam().above)); }, dictionary(8)));
}

TEST_P(PolicyPartTest, ChangeWithoutEventIsFoundByThePeriodicCheck)
{
    folder.write(etcFile, json(1));
    std::atomic<int> changeCount = 0;
    onChange = [&] { ++changeCount; };
    std::optional<PathWatch> watch;
    FileSystemWatcher ownWatcher;
    const PathWatch::PeriodicCheck check{[](const std::vector<PathStep>&) { return true; },
                                         std::chrono::milliseconds(10)};
    watch.emplace(
        ownWatcher, places, adapterLog, [&] { noteChange(); }, check);
    for (int round = 1; round <= 3; ++round) {
        overwriteWithoutEvents(folder.path(etcFile), json(round + 1));
        EXPECT_TRUE(eventually([&] { return changeCount >= round; })) << round;
    }
    EXPECT_EQ(changeCount, 3);
}

/// Makes the test and the watcher access files as an unprivileged user. Commands run as root.
struct UnprivilegedThread {
    static constexpr uid_t user = 12345;
    UnprivilegedThread() { ::setfsuid(user); }
    ~UnprivilegedThread() { ::setfsuid(::geteuid()); }
};

class ClosedPolicyFolderTest : UnprivilegedThread, public ManagedPolicyFileTest {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "needs root to make a folder unreadable";
        asRoot("chown root $D; chmod 755 $D; mkdir -p $D/etc/quorvane/managed.d");
    }
    void TearDown() override { ::setfsuid(::geteuid()); }
    /// Runs a shell command with $D set to the test's folder and $F to the file.
    void asRoot(const std::string& command) const
    {
        const std::string d = folder.path("").string();
        const std::string script = "umask 022; D='" + d + "'; F=$D/etc/quorvane/" + file + "; " + command;
        ASSERT_EQ(std::system(script.c_str()), 0) << command;
    }
    /// Relative to the folder of the policy file.
    std::string file = "managed.json";

    [[nodiscard]] std::size_t countWatchLines()
    {
        const auto lines = log.takeLines();
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
                return line.find("cannot be watched: Permission denied") != std::string::npos;
            }));
    }
};

TEST_F(ClosedPolicyFolderTest, IsLoggedOnceAndReadAfterItBecomesReadable)
{
    struct Case {
        const char* close;
        /// Whether the file is still readable, so it can be watched.
        bool isFileOpen;
        const char* open;
        const char* file = "managed.json";
    };
    const Case cases[] = {
        {"chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane"},
        {"chmod 711 $D/etc/quorvane", true, "chmod 755 $D/etc/quorvane"},
        {"chmod 711 $D/etc", true, "chmod 755 $D/etc"},
        {"chmod 711 $D/etc; chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane; chmod 755 $D/etc"},
        {"chmod 1777 $D/etc; chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane $D/etc"},
        {"chmod 700 $D", false, "chmod 755 $D"},
        {"chmod 700 $D/etc/quorvane/managed.d", false, "chmod 755 $D/etc/quorvane/managed.d",
         "managed.d/50.json"},
        {"chmod 711 $D/etc/quorvane/managed.d", false, "chmod 755 $D/etc/quorvane/managed.d",
         "managed.d/50.json"},
        {"chmod 711 $D/etc/quorvane", true, "chmod 755 $D/etc/quorvane", "managed.d/50.json"},
    };
    int value = 0;
    for (const Case& row : cases) {
        for (const bool isFileThere : {false, true}) {
            SCOPED_TRACE(std::string(row.close) + (isFileThere ? ", with a file" : ", without a file"));
            file = row.file;
            const auto write = [&](const char* how) {
                asRoot("echo '" + json(++value) + "' > $F.new; " + how);
            };
            asRoot("rm -f $F");
            if (isFileThere)
                write("mv $F.new $F");
            asRoot(row.close);
            ManagedPolicyFile fresh(places, adapterLog);
            FileSystemWatcher ownWatcher;
            // The test waits for changes of `fresh`, not of `policy`.
            fresh.watch(ownWatcher, [this] { noteChange(); });
            const auto follows = [&](const std::optional<PropertyList>& expected) {
                return eventually([&] { return fresh.dictionary() == expected; });
            };
            EXPECT_EQ(countWatchLines(), 1U);
            if (isFileThere && row.isFileOpen) {
                EXPECT_EQ(fresh.dictionary(), dictionary(value));
                write("cat $F.new > $F; rm $F.new");
                EXPECT_TRUE(follows(dictionary(value))) << "in place";
                write("mv $F.new $F");
                EXPECT_TRUE(follows(dictionary(value))) << "renamed";
            } else {
                EXPECT_EQ(fresh.dictionary(), std::nullopt);
            }
            write("mv $F.new $F");
            asRoot(row.open);
            EXPECT_TRUE(follows(dictionary(value))) << "opened";
            write("mv $F.new $F");
            EXPECT_TRUE(follows(dictionary(value))) << "watched again";
            EXPECT_EQ(countWatchLines(), 0U);
            asRoot(row.close);
            EXPECT_TRUE(eventually([&] { return countWatchLines() == 1U; })) << "closed again";
            asRoot(row.open);
            asRoot("rm $F");
        }
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
    folder.write("first/managed.json", json(1));
    folder.write("second/managed.json", json(2));
    fs::create_directory(folder.path("etc"));
    ::chmod(folder.path("etc").c_str(), 01755);
    fs::create_directory_symlink("../first", folder.path("etc/quorvane"));
    watch();
    EXPECT_EQ(policy.dictionary(), dictionary(1));
    EXPECT_NE(watchMask(folder.path("first")), 0U);
    EXPECT_TRUE(follows(
        [&] {
            fs::create_directory_symlink("../second", folder.path("etc/new"));
            fs::rename(folder.path("etc/new"), folder.path("etc/quorvane"));
        },
        dictionary(2)));
    EXPECT_EQ(watchMask(folder.path("first")), 0U);
    EXPECT_NE(watchMask(folder.path("etc")) & IN_MOVE_SELF, 0U);
    EXPECT_EQ(watchMask(folder.path("etc")) & IN_ATTRIB, 0U) << "every file in a shared folder would wake it";
    const int handler = watcher.addHandler([](std::uint32_t, std::string_view) {});
    EXPECT_THAT(watcher.setTargets(handler, {{folder.path("none"), IN_ATTRIB},
                                             {folder.path("first/managed.json/none"), IN_ATTRIB}}),
                testing::IsEmpty());
}

/// Runs `work` while this process cannot open files.
void withoutDescriptors(const std::function<void()>& work)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{.rlim_cur = 3, .rlim_max = limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    work();
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(ManagedPolicyFileTest, IsReportedOnceAndDespiteLostEvents)
{
    const std::string file = "etc/quorvane/managed.d/50.json";
    std::atomic<int> changeCount = 0;
    std::binary_semaphore isBlocked(0);
    std::binary_semaphore isFlooded(0);
    onChange = [&] {
        if (++changeCount == 2) {
            isBlocked.release();
            isFlooded.acquire();
        }
    };
    folder.write(file, json(1));
    folder.write(file + "~", "");
    folder.write("etc/quorvane/managed.d/60.txt", "");
    watch();
    EXPECT_EQ(policy.dictionary(), dictionary(1));
    withoutDescriptors([&] { policy.reload(); });
    folder.write(file + "~", "other files");
    folder.write("etc/quorvane/managed.d/60.txt", "");
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
    AdapterLog adapterLog{log, "test"};
    ManagedPolicyFile policy{{.files = {folder.path("etc/managed.json")}}, adapterLog};
    std::binary_semaphore isChanged{0};
    FileSystemWatcher watcher;

    void watch()
    {
        policy.watch(watcher, [this] { isChanged.release(); });
    }
};

TEST(ManagedPolicyWatchTest, ReloadWatchesWhatWasMountedMeanwhile)
{
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
