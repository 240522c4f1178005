#include "Platform/Linux/Files/ManagedPolicyFile.h"

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/Storage/PathWalk.h"
#include "Tests/Fakes/CaseName.h"
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
#include <map>
#include <mutex>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using testing::AllOf;
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
    PolicyPlaces places{
        .files = {folder.path("etc/quorvane/managed.plist"), folder.path("etc/quorvane/managed.json")},
        .fragments = folder.path("etc/quorvane/managed.d")};
    ManagedPolicyFile policy{places, adapterLog};
    std::mutex m_mutex;
    std::condition_variable m_changed;
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
    std::optional<PathWatch> watch;
    FileSystemWatcher ownWatcher;
    const PathWatch::PeriodicCheck check{[](const std::vector<PathStep>&) { return true; },
                                         std::chrono::milliseconds(10)};
    watch.emplace(
        ownWatcher, places, adapterLog,
        [&] {
            const std::lock_guard lock(m_mutex);
            ++changeCount;
            m_changed.notify_all();
        },
        check);
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
        static_cast<void>(policy.dictionary());
        EXPECT_TRUE(log.takeLines().empty()) << row.name;
        EXPECT_EQ(std::exchange(errors, {}), std::vector{State::malformed}) << row.name;
    }
    EXPECT_TRUE(follows([&] { folder.replace(etcFile, json(2)); }, dictionary(2)));
    EXPECT_TRUE(errors.empty());
}

TEST_P(PolicyPartTest, FileWritableByOthersIsNotUsed)
{
    const std::string parent = fs::path(etcFile).parent_path();
    struct Case {
        const char* name;
        std::string path;
        mode_t mode;
        mode_t restoredMode;
        bool isTrusted;
    };
    const Case cases[] = {
        {"file writable by all", etcFile, 0602, 0600, false},
        {"file writable by the group", etcFile, 0620, 0600, false},
        {"file readable by all", etcFile, 0644, 0600, true},
        {"writable folder", parent, 0777, 0755, false},
        {"folder writable by the group", parent, 0775, 0755, false},
        {"sticky folder of the file", parent, 01777, 0755, !GetParam().isFragment},
        {"writable parent of the folder", "etc", 0757, 0755, false},
        {"sticky folder", "etc", 01777, 0755, true},
    };
    folder.write(etcFile, json(1));
    for (const Case& row : cases) {
        ::chmod(folder.path(row.path).c_str(), row.mode);
        RecordingUnifiedLog ownLog;
        AdapterLog own{ownLog, "test"};
        ManagedPolicyFile fresh(places, own);
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

TEST_P(PolicyPartTest, RejectsWhatIsNotARegularFile)
{
    struct Case {
        const char* name;
        void (*create)(const fs::path& path);
        std::size_t lineCount;
    };
    const Case cases[] = {
        {"folder", [](const fs::path& path) { fs::create_directory(path); }, GetParam().isFragment ? 0U : 1U},
        {"pipe", [](const fs::path& path) { ::mkfifo(path.c_str(), 0600); }, 1},
        {"loop", [](const fs::path& path) { fs::create_symlink(path.filename(), path); }, 1},
        {"device", [](const fs::path& path) { fs::create_symlink("/dev/null", path); }, 1},
        {"link to nothing", [](const fs::path& path) { fs::create_symlink("none", path); },
         GetParam().isFragment ? 1U : 0U},
    };
    const fs::path file = folder.path(etcFile);
    fs::create_directories(file.parent_path());
    for (const Case& row : cases) {
        row.create(file);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(fresh.dictionary(), std::nullopt) << row.name;
        EXPECT_EQ(log.takeLines().size(), row.lineCount) << row.name;
        fs::remove(file);
    }
}

/// The files of a configuration: the policy file "b", fragments by their names.
using Files = std::map<std::string, const char*>;

class FragmentTest : public ManagedPolicyFileTest {
protected:
    void write(const Files& files) const
    {
        fs::remove_all(folder.path("etc"));
        for (const auto& [name, content] : files)
            folder.write(name == "b" ? "etc/quorvane/managed.json" : "etc/quorvane/managed.d/" + name,
                         content);
    }
    static std::string text(const std::optional<PropertyList>& dictionary)
    {
        return dictionary ? dictionary->description() : "none";
    }
};

TEST_F(FragmentTest, ReplaceKeysInByteOrder)
{
    struct Case {
        const char* name;
        Files files;
        /// The description of the dictionary.
        const char* expected;
    };
    const char* plist = "<plist><dict><key>k</key><integer>9</integer></dict></plist>";
    const Case cases[] = {
        {"no file", {}, "none"},
        {"a file alone", {{"b", R"({"k": 1})"}}, R"({"k": 1})"},
        {"a fragment alone", {{"a.json", R"({"k": 1})"}}, R"({"k": 1})"},
        {"on top of the file",
         {{"b", R"({"k": 1, "l": 2})"}, {"a.json", R"({"k": 3, "m": 4})"}},
         R"({"k": 3, "l": 2, "m": 4})"},
        {"whole values",
         {{"b", R"({"k": {"a": 1, "b": 2}})"}, {"a.json", R"({"k": {"b": 3}})"}},
         R"({"k": {"b": 3}})"},
        {"bytes, not numbers", {{"10.json", R"({"k": 10})"}, {"9.json", R"({"k": 9})"}}, R"({"k": 9})"},
        {"bytes, not letters",
         {{"Z.json", R"({"k": 1})"}, {"a.json", R"({"k": 2})"}, {"\xC3\xA9.json", R"({"k": 3})"}},
         R"({"k": 3})"},
        {"both formats", {{"a.json", R"({"k": 1})"}, {"a.plist", plist}}, R"({"k": 9})"},
        {"content decides the format", {{"a.json", plist}}, R"({"k": 9})"},
        {"null replaces", {{"b", R"({"k": 1})"}, {"a.json", R"({"k": null})"}}, R"({"k": <null>})"},
        {"an empty fragment", {{"b", R"({"k": 1})"}, {"a.json", "{}"}}, R"({"k": 1})"},
        {"other names",
         {{"b", R"({"k": 1})"},
          {"x.json~", "{"},
          {".x.json.swp", "{"},
          {".x.json", "{"},
          {".json", "{"},
          {"x.json.dpkg-new", "{"},
          {"x.JSON", "{"},
          {"xjson", "{"},
          {"sub/x.json", "{"},
          {"sub.json/x.json", "{"}},
         R"({"k": 1})"},
    };
    for (const Case& row : cases) {
        write(row.files);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(text(fresh.dictionary()), row.expected) << row.name;
        EXPECT_THAT(log.takeLines(), testing::IsEmpty()) << row.name;
    }
}

TEST_F(FragmentTest, UnusableFileDropsNoKeys)
{
    struct Case {
        const char* name;
        /// The files at the start, and after a change.
        Files before;
        Files after;
        const char* expectedBefore;
        const char* expectedAfter;
        /// Error lines after the change; equal ones are logged once.
        std::size_t lineCount;
    };
    const char* bad = R"({"k": )";
    const Case cases[] = {
        {"fragment", {{"a.json", R"({"k": 1})"}}, {{"a.json", bad}}, R"({"k": 1})", R"({"k": 1})", 1},
        {"others still change",
         {{"a.json", R"({"k": 1})"}},
         {{"a.json", bad}, {"b", R"({"k": 0, "l": 2})"}},
         R"({"k": 1})",
         R"({"k": 1, "l": 2})",
         1},
        {"policy file",
         {{"b", R"({"k": 1})"}, {"a.json", R"({"l": 1})"}},
         {{"b", bad}, {"a.json", R"({"l": 2})"}},
         R"({"k": 1, "l": 1})",
         R"({"k": 1, "l": 2})",
         1},
        {"new fragment",
         {{"b", R"({"k": 1})"}},
         {{"b", R"({"k": 2})"}, {"a.json", bad}},
         R"({"k": 1})",
         R"({"k": 2})",
         1},
        {"removed fragment",
         {{"b", R"({"k": 1})"}, {"a.json", R"({"k": 2})"}},
         {{"b", R"({"k": 1})"}},
         R"({"k": 2})",
         R"({"k": 1})",
         0},
        {"removed policy file",
         {{"b", R"({"k": 1})"}, {"a.json", R"({"l": 2})"}},
         {{"a.json", R"({"l": 2})"}},
         R"({"k": 1, "l": 2})",
         R"({"l": 2})",
         0},
        {"fragment at the start",
         {{"b", R"({"k": 1})"}, {"a.json", bad}},
         {{"b", R"({"k": 1})"}, {"a.json", R"({"l": 2})"}},
         "none",
         R"({"k": 1, "l": 2})",
         0},
        {"policy file at the start",
         {{"b", bad}, {"a.json", R"({"l": 1})"}},
         {{"a.json", R"({"l": 1})"}},
         "none",
         R"({"l": 1})",
         0},
        {"still unusable", {{"a.json", bad}}, {{"a.json", bad}, {"b", R"({"k": 1})"}}, "none", "none", 1},
        {"several",
         {{"b", R"({"k": 1})"}},
         {{"b", bad}, {"a.json", bad}, {"c.json", bad}},
         R"({"k": 1})",
         R"({"k": 1})",
         3},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        write(row.before);
        ManagedPolicyFile fresh(places, adapterLog);
        EXPECT_EQ(text(fresh.dictionary()), row.expectedBefore);
        log.takeLines();
        write(row.after);
        for (int repetition = 0; repetition < 2; ++repetition) {
            fresh.reload();
            EXPECT_EQ(text(fresh.dictionary()), row.expectedAfter);
            EXPECT_EQ(log.takeLines().size(), repetition == 0 ? row.lineCount : 0U);
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
    for (std::size_t number = 0; number < maximumFragmentCount; ++number)
        folder.write(name(number), fmt::format(R"({{"k{}": 1}})", number));
    EXPECT_EQ(line(), "");
    ASSERT_TRUE(policy.dictionary());
    const PropertyList all = *policy.dictionary();
    EXPECT_EQ(all.dictionary()->size(), maximumFragmentCount);
    folder.write(name(maximumFragmentCount), R"({"more": 1})");
    EXPECT_THAT(line(), HasSubstr("managed.d: contains more than 100 fragments; the fragments"));
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
