#include "Platform/Linux/Files/ManagedPolicyFile.h"

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/Storage/PathWalk.h"
#include "Tests/Fakes/CaseName.h"
#include "Tests/Fakes/IsolatedProcess.h"
#include "Tests/Fakes/MappedFile.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <semaphore>
#include <sstream>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

/// A watched policy in a temporary folder.
class ManagedPolicyFileTest : public testing::Test {
protected:
    /// Waits until `isTrue` returns true, checking after each reported change.
    bool eventually(const std::function<bool()>& isTrue)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), isTrue);
    }
    /// Makes `change` and waits for the expected dictionary, which never arrives if the change is missed.
    testing::AssertionResult follows(const std::function<void()>& change,
                                     const std::optional<PropertyList>& expected)
    {
        change();
        if (eventually([&] { return policy.dictionary() == expected; }))
            return testing::AssertionSuccess();
        const auto found = policy.dictionary();
        return testing::AssertionFailure() << "found " << (found ? found->description() : "none");
    }
    void watch()
    {
        policy.watch(watcher, [this] { noteChange(); });
    }
    void noteChange()
    {
        onChange();
        const std::lock_guard lock(m_mutex);
        m_changed.notify_all();
    }
    static std::optional<PropertyList> dictionary(std::int64_t value)
    {
        return PropertyList(PropertyList::Dictionary{{"a", value}});
    }
    static std::string json(int value) { return R"({"a": )" + std::to_string(value) + "}"; }

    TemporaryFolder folder;
    RecordingUnifiedLog log;
    AdapterLog adapterLog{log, "test"};
    PolicyPlaces places{
        .files = {folder.path("etc/quorvane/managed.plist"), folder.path("etc/quorvane/managed.json")},
        .fragments = folder.path("etc/quorvane/managed.d")};
    ManagedPolicyFile policy{places, adapterLog};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    /// Called on the watcher's thread for each reported change.
    std::function<void()> onChange = [] {};
    FileSystemWatcher watcher;
};

/// A file of the configuration, by its path below a folder "etc".
struct PolicyPart {
    const char* name;
    std::string file;
    /// A file that takes precedence.
    std::string above;
    bool isFragment;
};

class PolicyPartTest : public ManagedPolicyFileTest, public testing::WithParamInterface<PolicyPart> {
protected:
    const std::string etcFile = "etc/" + GetParam().file;
};

INSTANTIATE_TEST_SUITE_P(, PolicyPartTest,
                         testing::Values(PolicyPart{"PolicyFile", "quorvane/managed.json",
                                                    "quorvane/managed.plist", false},
                                         PolicyPart{"Fragment", "quorvane/managed.d/50.json",
                                                    "quorvane/managed.d/60.plist", true}),
                         caseName<PolicyPart>);

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

TEST_P(PolicyPartTest, InvalidFileKeepsItsLastContentAndLogsOnce)
{
    using State = PolicyFileReading::State;
    std::vector<State> errors;
    policy.onError([&](State state) { errors.push_back(state); });
    watch();
    folder.write(etcFile, json(1));
    ASSERT_EQ(policy.dictionary(), dictionary(1));
    struct Case {
        const char* name;
        std::string content;
        const char* reason;
    };
    const Case cases[] = {
        {"half-written", R"({"a": 1)", ".json:1:"},
        {"array", "[1]", "neither"},
        {"garbage", std::string(10 << 20, '\x01'), "neither"},
        {"huge", std::string(17 << 20, '{'), "16 MiB"},
        {"empty", "", "empty"},
        {"key twice", "{\"a\":1,\n\"a\":2}", ".json:2:1:"},
        {"plist that is an array", "<plist><array/></plist>",
         "contains a single array instead of a dictionary"},
    };
    log.takeLines();
    for (const Case& row : cases) {
        folder.replace(etcFile, row.content);
        std::vector<std::string> lines;
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(policy.dictionary(), dictionary(1)) << row.name;
            lines = log.takeLines();
            return !lines.empty();
        })) << row.name;
        EXPECT_THAT(lines, ElementsAre(AllOf(HasSubstr(row.reason), HasSubstr("the last valid "),
                                             HasSubstr(" stays in effect"))))
            << row.name;
        policy.reload();
        static_cast<void>(policy.dictionary());
        EXPECT_TRUE(log.takeLines().empty()) << row.name;
        EXPECT_EQ(std::exchange(errors, {}), std::vector{State::malformed}) << row.name;
    }
    EXPECT_TRUE(follows([&] { folder.replace(etcFile, json(2)); }, dictionary(2)));
    EXPECT_TRUE(errors.empty());
}

TEST_P(PolicyPartTest, FileWritableByOthersIsNotUsed)
{
    const bool isFragment = GetParam().isFragment;
    const std::string parent = fs::path(etcFile).parent_path();
    const std::string base = "etc/quorvane/managed.json";
    struct Case {
        std::string path;
        mode_t mode;
        mode_t restoredMode;
        bool isUsed;
        /// Part of the only log line; empty if none is expected.
        std::string line;
    };
    const Case cases[] = {
        {etcFile, 0602, 0600, false, etcFile + ": can be written by others (mode 0602)"},
        {etcFile, 0620, 0600, false, etcFile + ": can be written by others (mode 0620)"},
        {etcFile, 01602, 0600, false, "(mode 1602)"},
        {etcFile, 0644, 0600, true, ""},
        {parent, 0777, 0755, false, "(mode 0777)"},
        {parent, 0775, 0755, false, "(mode 0775)"},
        {parent, 01775, 0755, !isFragment, isFragment ? "(mode 1775)" : ""},
        {"etc", 0757, 0755, false, "etc can be written by others (mode 0757)"},
        {"etc", 01777, 0755, true, ""},
        {base, 0602, 0600, false, base + ": can be written by others"},
        {"etc/quorvane/managed.plist", 0602, 0600, !isFragment, "managed.plist: can be written by others"},
    };
    folder.write(etcFile, json(1));
    for (const Case& row : cases) {
        SCOPED_TRACE(row.path + ": " + row.line);
        const bool isOther = !fs::exists(folder.path(row.path));
        if (isOther)
            folder.write(row.path, "{}");
        ::chmod(folder.path(row.path).c_str(), row.mode);
        ManagedPolicyFile fresh(places, adapterLog);
        for (const bool isFirst : {true, false}) {
            EXPECT_EQ(fresh.dictionary(), row.isUsed ? dictionary(1) : std::nullopt);
            const auto lines = log.takeLines();
            EXPECT_EQ(lines.size(), isFirst && !row.line.empty() ? 1U : 0U);
            if (!lines.empty()) {
                EXPECT_THAT(lines.front(), HasSubstr(row.line));
            }
            fresh.reload();
        }
        ::chmod(folder.path(row.path).c_str(), row.restoredMode);
        if (isOther)
            fs::remove(folder.path(row.path));
    }
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(folder.path("etc").c_str(), 12345, 0), 0);
        EXPECT_EQ(policy.dictionary(), std::nullopt);
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("belongs to user 12345")));
    }
}

TEST_P(PolicyPartTest, ChangeDuringAReadIsReadNext)
{
    folder.write(etcFile, "");
    policy.onError([&](PolicyFileReading::State) {
        folder.replace(etcFile, json(1));
        policy.reload();
    });
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    EXPECT_EQ(policy.dictionary(), dictionary(1));
}

/// Returns the events for which a folder is watched; 0 if it is not watched.
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

/// Runs while this process has almost no file descriptor left.
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
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    for (int count = 0; count <= limit; ++count) // Equal events in a row are queued as one.
        ::chmod(folder.path(count % 2 == 0 ? file + "~" : "etc/quorvane/managed.d/60.txt").c_str(), 0600);
    folder.replace(file, json(4));
    isFlooded.release();
    EXPECT_TRUE(eventually([&] { return policy.dictionary() == dictionary(4); }));
}

/// A policy file that is watched in a process of its own.
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

TEST_F(ManagedPolicyFileTest, NeverReadsAnUntrustedFileThatComesAndGoes)
{
    folder.write("etc/mine", json(1));
    ::chmod(folder.path("etc/mine").c_str(), 0666);
    ::chmod(folder.path("etc").c_str(), 01777);
    const fs::path mine = folder.path("etc/mine");
    const fs::path file = folder.path("etc/managed.json");
    std::atomic<bool> isEnding = false;
    std::thread attacker([&] {
        while (!isEnding) {
            [[maybe_unused]] const int made = ::link(mine.c_str(), file.c_str());
            ::unlink(file.c_str());
        }
    });
    constexpr int neededCount = 500;
    int goodCount = 0;
    for (int found = 0; found < neededCount;) {
        const auto state = readPolicyFile(file, TrustCheck::required).state;
        found += state == PolicyFileReading::State::missing ? 0 : 1;
        goodCount += state == PolicyFileReading::State::good ? 1 : 0;
    }
    isEnding = true;
    attacker.join();
    EXPECT_EQ(goodCount, 0);
}

TEST_F(ManagedPolicyFileTest, WalksPathsLikeTheKernel)
{
    folder.write("a/b/file", "");
    fs::create_directory_symlink("../a/./b/", folder.path("a/link"));
    fs::create_symlink(folder.path("a/link/../link/file"), folder.path("absolute"));
    fs::create_symlink("loop", folder.path("loop"));
    struct Case {
        const char* path;
        /// The path of the last step.
        const char* end;
        int error;
    };
    const Case cases[] = {
        {"a/b/file", "a/b/file", 0},
        {"a/link/file", "a/b/file", 0},
        {"absolute", "a/b/file", 0},
        {"a/../a//b/./file", "a/b/file", 0},
        {"a/b/", "a/b", 0},
        {"a/none/file", "a/none", ENOENT},
        {"a/b/file/", "a/b/file", ENOTDIR},
        {"a/b/file/x", "a/b/file", ENOTDIR},
        {"loop", "loop", ELOOP},
        {"../../../../..", "/", 0},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.path);
        const auto steps = walkPath(folder.path(row.path));
        EXPECT_EQ(steps.back().path, folder.path(row.end));
        EXPECT_EQ(steps.back().error, row.error);
        EXPECT_EQ(steps.back().kind == PathStep::Kind::missing, row.error != 0);
        struct stat status {};
        EXPECT_EQ(::stat(folder.path(row.path).c_str(), &status) == 0 ? 0 : errno, row.error);
        if (row.error == 0) {
            EXPECT_EQ(steps.back().status.st_ino, status.st_ino);
        }
    }
}

TEST_P(PolicyPartTest, RejectsWhatIsNotARegularFile)
{
    const bool isFragment = GetParam().isFragment;
    struct Case {
        void (*create)(const fs::path& path);
        /// Part of the log line; empty if none is expected.
        std::string line;
    };
    const Case cases[] = {
        {[](const fs::path& path) { fs::create_directory(path); },
         isFragment ? "" : "json: is not a regular file"},
        {[](const fs::path& path) { ::mkfifo(path.c_str(), 0600); }, "json: is not a regular file"},
        {[](const fs::path& path) { fs::create_symlink(path.filename(), path); },
         "json: cannot be opened: Too many levels of symbolic links"},
        {[](const fs::path& path) { fs::create_symlink("/dev/null", path); },
         "json: /dev/null can be written by others"},
        {[](const fs::path& path) { fs::create_symlink("none", path); },
         isFragment ? "json: is a symbolic link to a missing file" : ""},
        {[](const fs::path& path) { fs::create_symlink("/dev/null/none", path); },
         isFragment ? "json: is a symbolic link to a missing file" : ""},
    };
    const fs::path file = folder.path(etcFile);
    fs::create_directories(file.parent_path());
    for (const Case& row : cases) {
        row.create(file);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(fresh.dictionary(), std::nullopt) << row.line;
        const auto lines = log.takeLines();
        EXPECT_EQ(lines.size(), row.line.empty() ? 0U : 1U) << row.line;
        EXPECT_TRUE(lines.empty() || lines[0].find(row.line) != std::string::npos) << lines[0];
        fs::remove(file);
    }
}

/// A configuration in short: "b: k1 l2 a: m3" has the policy file {"k": 1, "l": 2} and the fragment a.json
/// {"m": 3}. A "!" makes a file incomplete, "#" makes it writable by others, and "<9" is a property list with
/// the value 9 for k.
class FragmentTest : public ManagedPolicyFileTest {
protected:
    void write(const std::string& files) const
    {
        fs::remove_all(folder.path("etc"));
        std::istringstream words(files);
        std::map<std::string, std::string> contents;
        std::string* content = nullptr;
        const std::string* untrusted = nullptr;
        for (std::string word; words >> word;) {
            if (word.ends_with(':'))
                content = &contents[word == "b:"        ? "managed.json"
                                    : word.size() == 2U ? std::string("managed.d/") + word[0] + ".json"
                                                        : "managed.d/" + word.substr(0, word.size() - 1)];
            else if (word == "#")
                untrusted = content;
            else if (word == "<9")
                *content = "<plist><dict><key>k</key><integer>9</integer></dict></plist>";
            else
                *content += word == "!" ? "{"
                                        : fmt::format(R"({}"{}": {})", content->empty() ? "" : ", ", word[0],
                                                      word.substr(1));
        }
        for (const auto& [name, keys] : contents) {
            folder.write("etc/quorvane/" + name, keys.starts_with('<') ? keys : "{" + keys + "}");
            if (&keys == untrusted)
                ::chmod(folder.path("etc/quorvane/" + name).c_str(), 0602);
        }
    }
    static std::string text(const std::optional<PropertyList>& dictionary)
    {
        std::string keys;
        if (dictionary)
            for (const auto& [key, value] : *dictionary->dictionary())
                keys += (keys.empty() ? "" : " ") + key + value.description();
        return dictionary ? keys : "none";
    }
};

TEST_F(FragmentTest, ReplaceKeysInByteOrder)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "none"},
        {"b: k1", "k1"},
        {"a: k1", "k1"},
        {"b: k1 l2 a: k3 m4", "k3 l2 m4"},
        {R"(b: k{"a":1,"b":2} a: k{"b":3})", R"(k{"b": 3})"}, // Whole values.
        {"10.json: k10 9.json: k9", "k9"},                    // Bytes, not numbers.
        {"Z: k1 a: k2 \xC3\xA9.json: k3", "k3"},              // Bytes, not letters.
        {"a.json: k1 a.plist: <9", "k9"},
        {"a: <9", "k9"}, // The content decides the format.
        {"b: k1 a: knull", "k<null>"},
        {"b: k1 a:", "k1"},
        {"b: k1 x.json~: ! .x.json.swp: ! .x.json: ! .json: ! x.json.dpkg-new: ! x.JSON: ! xjson: ! "
         "sub/x.json: ! sub.json/x.json: !",
         "k1"}, // Other names.
    };
    for (const auto& [files, expected] : cases) {
        write(files);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(text(fresh.dictionary()), expected) << files;
        EXPECT_THAT(log.takeLines(), testing::IsEmpty()) << files;
    }
}

TEST_F(FragmentTest, UnusableFileDropsNoKeys)
{
    struct Case {
        const char* before;
        const char* expectedBefore;
        const char* after;
        const char* expectedAfter;
        /// Error lines after the change; equal ones are logged once.
        std::size_t lineCount;
    };
    const Case cases[] = {
        {"a: k1", "k1", "a: !", "k1", 1},
        {"a: k1", "k1", "a: ! b: k0 l2", "k1 l2", 1}, // Others still change.
        {"b: k1 a: l1", "k1 l1", "b: ! a: l2", "k1 l2", 1},
        {"b: k1", "k1", "b: k2 a: !", "k2", 1},
        {"b: k1 a: k2", "k2", "b: k1", "k1", 0},
        {"b: k1 a: l2", "k1 l2", "a: l2", "l2", 0},
        {"b: k1 a: !", "none", "b: k1 a: l2", "k1 l2", 0}, // Unusable at the start.
        {"b: ! a: l1", "none", "a: l1", "l1", 0},
        {"a: !", "none", "a: ! b: k1", "none", 1},
        {"b: k1", "k1", "b: ! a: ! c: !", "k1", 3},
        {"b: k1 # a: l1", "none", "b: ! a: l1", "none", 1},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(std::string(row.before) + ", then " + row.after);
        write(row.before);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(text(fresh.dictionary()), row.expectedBefore);
        log.takeLines();
        write(row.after);
        for (int repetition = 0; repetition < 2; ++repetition) {
            fresh.reload();
            EXPECT_EQ(text(fresh.dictionary()), row.expectedAfter);
            const auto lines = log.takeLines();
            EXPECT_EQ(lines.size(), repetition == 0 ? row.lineCount : 0U);
            for (const std::string& line : lines)
                EXPECT_THAT(line, AnyOf(HasSubstr("stays in effect"), HasSubstr("there is no earlier"),
                                        HasSubstr(row.expectedAfter == std::string("none")
                                                      ? "no change is applied until"
                                                      : "its keys are not used until")));
        }
    }
}

TEST_F(FragmentTest, NumberAndSizeAreLimited)
{
    const auto name = [](std::size_t number) {
        return fmt::format("etc/quorvane/managed.d/{:04}.json", number);
    };
    const auto line = [&] {
        policy.reload();
        static_cast<void>(policy.dictionary());
        const auto lines = log.takeLines();
        return lines.empty() ? std::string() : lines.front();
    };
    const std::string tooMany = "managed.d: contains more than 100 fragments; ";
    folder.write("etc/quorvane/managed.json", R"({"k0": 2})");
    for (std::size_t number = 0; number <= maximumFragmentCount; ++number)
        folder.write(name(number), fmt::format(R"({{"k{}": 1}})", number));
    EXPECT_THAT(line(), HasSubstr(tooMany + "no change is applied until it is corrected"));
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    fs::remove(folder.path(name(maximumFragmentCount)));
    EXPECT_EQ(line(), "");
    const auto all = policy.dictionary();
    ASSERT_TRUE(all);
    EXPECT_EQ(all->dictionary()->size(), maximumFragmentCount);
    folder.write(name(maximumFragmentCount), R"({"more": 1})");
    EXPECT_THAT(line(), HasSubstr(tooMany + "the fragments that were last read in it stay in effect"));
    EXPECT_EQ(policy.dictionary(), all);
    fs::remove(folder.path(name(maximumFragmentCount)));
    const std::string large = R"({"k": ")" + std::string(9 << 20, 'x') + "\"}";
    folder.write(name(1), large);
    EXPECT_EQ(line(), "");
    folder.write(name(2), large);
    EXPECT_THAT(line(), HasSubstr("0002.json: is not read because the fragments are larger than 16 MiB"));
    EXPECT_EQ(policy.dictionary()->dictionary()->size(), maximumFragmentCount);
}

} // namespace
