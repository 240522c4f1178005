#include "Platform/Linux/Files/ManagedPolicyFile.h"

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/Storage/PathWalk.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;
using namespace Platform;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

/// A watched policy file in a temporary folder.
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
        policy.watch(watcher, [this] {
            const std::lock_guard lock(m_mutex);
            m_changed.notify_all();
        });
    }
    static std::optional<PropertyList> dictionary(std::int64_t value)
    {
        return PropertyList(PropertyList::Dictionary{{"a", value}});
    }
    static std::string json(int value) { return R"({"a": )" + std::to_string(value) + "}"; }

    TemporaryFolder folder;
    RecordingUnifiedLog log;
    AdapterLog adapterLog{log, "test"};
    ManagedPolicyFile policy{
        {folder.path("etc/quorvane/managed.plist"), folder.path("etc/quorvane/managed.json")}, adapterLog};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    FileSystemWatcher watcher;
};

TEST_F(ManagedPolicyFileTest, DetectsEveryKindOfChange)
{
    watch();
    const fs::path file = folder.path("etc/quorvane/managed.json");
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    EXPECT_TRUE(follows([&] { folder.write("etc/quorvane/managed.json", json(1)); }, dictionary(1)))
        << "folders created later";
    EXPECT_TRUE(follows([&] { folder.write("etc/quorvane/managed.json", json(2)); }, dictionary(2)))
        << "in place";
    EXPECT_TRUE(follows([&] { folder.replace("etc/quorvane/managed.json", json(3)); }, dictionary(3)))
        << "renamed";
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
            fs::create_symlink("../../other/second.json", folder.path("link"));
            fs::rename(folder.path("link"), file);
        },
        dictionary(6)))
        << "link swapped";
    EXPECT_TRUE(follows([&] { ::chmod(folder.path("other/second.json").c_str(), 0666); }, std::nullopt))
        << "no longer trusted";
    EXPECT_TRUE(follows([&] { ::chmod(folder.path("other/second.json").c_str(), 0600); }, dictionary(6)));
    EXPECT_TRUE(follows([&] { fs::rename(folder.path("etc"), folder.path("gone")); }, std::nullopt))
        << "folder moved away";
    EXPECT_TRUE(follows([&] { folder.write("etc/quorvane/managed.json", json(7)); }, dictionary(7)))
        << "folder created again";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("new/quorvane/managed.json", json(8));
            fs::rename(folder.path("etc"), folder.path("old"));
            fs::create_directory_symlink("new", folder.path("etc"));
        },
        dictionary(8)))
        << "folder replaced by a link";
    EXPECT_TRUE(follows(
        [&] {
            folder.write("etc/quorvane/managed.plist",
                         "<plist><dict><key>a</key><integer>9</integer></dict></plist>");
        },
        dictionary(9)))
        << "the property list takes precedence";
    EXPECT_TRUE(follows([&] { fs::remove(folder.path("etc/quorvane/managed.plist")); }, dictionary(8)));
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
        asRoot("chown root $D; chmod 755 $D; mkdir -p $D/etc/quorvane");
    }
    void TearDown() override { ::setfsuid(::geteuid()); }
    /// Runs a shell command with $D set to the test's folder and $F to the policy file.
    void asRoot(const std::string& command) const
    {
        const std::string d = folder.path("").string();
        const std::string script = "umask 022; D='" + d + "'; F=$D/etc/quorvane/managed.json; " + command;
        ASSERT_EQ(std::system(script.c_str()), 0) << command;
    }
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
        /// Whether the policy file is still readable, so it can be watched itself.
        bool isFileOpen;
        const char* open;
    };
    const Case cases[] = {
        {"chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane"},
        {"chmod 711 $D/etc/quorvane", true, "chmod 755 $D/etc/quorvane"},
        {"chmod 711 $D/etc", true, "chmod 755 $D/etc"},
        {"chmod 711 $D/etc; chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane; chmod 755 $D/etc"},
        {"chmod 1777 $D/etc; chmod 700 $D/etc/quorvane", false, "chmod 755 $D/etc/quorvane $D/etc"},
        {"chmod 700 $D", false, "chmod 755 $D"},
    };
    int value = 0;
    for (const Case& row : cases) {
        for (const bool isFileThere : {false, true}) {
            SCOPED_TRACE(std::string(row.close) + (isFileThere ? ", with a file" : ", without a file"));
            const auto write = [&](const char* how) {
                asRoot("echo '" + json(++value) + "' > $F.new; " + how);
            };
            asRoot("rm -f $F");
            if (isFileThere)
                write("mv $F.new $F");
            asRoot(row.close);
            ManagedPolicyFile fresh({folder.path("etc/quorvane/managed.json")}, adapterLog);
            FileSystemWatcher ownWatcher;
            // The test waits for changes of `fresh`, not of `policy`.
            fresh.watch(ownWatcher, [this] {
                const std::lock_guard lock(m_mutex);
                m_changed.notify_all();
            });
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
        }
    }
}

TEST_F(ManagedPolicyFileTest, InvalidFileKeepsTheLastConfigurationAndLogsOnce)
{
    using State = PolicyFileReading::State;
    std::vector<State> errors;
    policy.onError([&](State state) { errors.push_back(state); });
    watch();
    folder.write("etc/quorvane/managed.json", json(1));
    ASSERT_EQ(policy.dictionary(), dictionary(1));
    struct Case {
        const char* name;
        std::string content;
        const char* reason;
    };
    const Case cases[] = {
        {"half-written", R"({"a": 1)", "managed.json:1:"},
        {"array", "[1]", "neither"},
        {"garbage", std::string(10 << 20, '\x01'), "neither"},
        {"huge", std::string(17 << 20, '{'), "16 MiB"},
        {"empty", "", "empty"},
        {"key twice", "{\"a\":1,\n\"a\":2}", "managed.json:2:1:"},
        {"plist that is an array", "<plist><array/></plist>",
         "contains a single array instead of a dictionary"},
    };
    log.takeLines();
    for (const Case& row : cases) {
        folder.replace("etc/quorvane/managed.json", row.content);
        std::vector<std::string> lines;
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(policy.dictionary(), dictionary(1)) << row.name;
            lines = log.takeLines();
            return !lines.empty();
        })) << row.name;
        EXPECT_THAT(lines, ElementsAre(AllOf(HasSubstr(row.reason),
                                             HasSubstr("the last valid configuration stays in effect"))))
            << row.name;
        static_cast<void>(policy.dictionary());
        EXPECT_TRUE(log.takeLines().empty()) << row.name;
        EXPECT_EQ(std::exchange(errors, {}), std::vector{State::malformed}) << row.name;
    }
    EXPECT_TRUE(follows([&] { folder.replace("etc/quorvane/managed.json", json(2)); }, dictionary(2)));
    EXPECT_TRUE(errors.empty());
}

TEST_F(ManagedPolicyFileTest, FileWritableByOthersCountsAsMissing)
{
    struct Case {
        const char* name;
        const char* path;
        mode_t mode;
        mode_t restoredMode;
        bool isTrusted;
    };
    const Case cases[] = {
        {"file writable by all", "etc/quorvane/managed.json", 0602, 0600, false},
        {"file writable by the group", "etc/quorvane/managed.json", 0620, 0600, false},
        {"file readable by all", "etc/quorvane/managed.json", 0644, 0600, true},
        {"writable folder", "etc/quorvane", 0777, 0755, false},
        {"writable parent of the folder", "etc", 0757, 0755, false},
        {"sticky folder", "etc", 01777, 0755, true},
    };
    folder.write("etc/quorvane/managed.json", json(1));
    for (const Case& row : cases) {
        ::chmod(folder.path(row.path).c_str(), row.mode);
        RecordingUnifiedLog ownLog;
        AdapterLog own{ownLog, "test"};
        ManagedPolicyFile fresh({folder.path("etc/quorvane/managed.json")}, own);
        EXPECT_EQ(fresh.dictionary().has_value(), row.isTrusted) << row.name;
        EXPECT_EQ(ownLog.takeLines().size(), row.isTrusted ? 0U : 1U) << row.name;
        ::chmod(folder.path(row.path).c_str(), row.restoredMode);
    }
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(folder.path("etc").c_str(), 12345, 0), 0);
        EXPECT_EQ(policy.dictionary(), std::nullopt);
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("belongs to user 12345")));
    }
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

TEST_F(ManagedPolicyFileTest, RejectsWhatIsNotARegularFile)
{
    fs::create_directories(folder.path("etc/quorvane/managed.json"));
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("is not a regular file")));
    ManagedPolicyFile pipe({folder.path("pipe")}, adapterLog);
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(pipe.dictionary(), std::nullopt);
    ManagedPolicyFile loop({folder.path("loop")}, adapterLog);
    fs::create_symlink("loop", folder.path("loop"));
    EXPECT_EQ(loop.dictionary(), std::nullopt);
}

} // namespace
