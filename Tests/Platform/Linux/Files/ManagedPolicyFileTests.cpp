#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/Storage/PathWalk.h"
#include "Tests/Platform/Linux/Files/ManagedPolicyFileTest.h"

#include <fmt/format.h>

#include <sstream>
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

INSTANTIATE_TEST_SUITE_P(, PolicyPartTest,
                         testing::Values(PolicyPart{"PolicyFile", "quorvane/managed.json",
                                                    "quorvane/managed.plist", false},
                                         PolicyPart{"Fragment", "quorvane/managed.d/50.json",
                                                    "quorvane/managed.d/60.plist", true}),
                         [](const auto& part) { return std::string(part.param.name); });

TEST_P(PolicyPartTest, InvalidFileKeepsItsLastContentAndLogsOnce)
{
    using State = PolicyFileReading::State;
    std::vector<State> errors;
    policy.onError([&](State state) { errors.push_back(state); });
    watch();
    folder.write(file, json(1));
    ASSERT_EQ(policy.dictionary(), dictionary(1));
    const std::pair<const char*, std::string> cases[] = {
        {"json:1:", R"({"a": 1)"},
        {"larger than 16 MiB", std::string(17 << 20, '{')},
        {"contains a single array instead of a dictionary", "<plist><array/></plist>"},
    };
    log.takeLines();
    for (const auto& [reason, content] : cases) {
        SCOPED_TRACE(reason);
        folder.replace(file, content);
        std::vector<std::string> lines;
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(policy.dictionary(), dictionary(1));
            lines = log.takeLines();
            return !lines.empty();
        }));
        EXPECT_THAT(lines, ElementsAre(AllOf(HasSubstr(reason), HasSubstr("the last valid "),
                                             HasSubstr(" stays in effect"))));
        policy.reload();
        static_cast<void>(policy.dictionary());
        EXPECT_TRUE(log.takeLines().empty());
        EXPECT_EQ(std::exchange(errors, {}), std::vector{State::malformed});
    }
    EXPECT_TRUE(follows([&] { folder.replace(file, json(2)); }, dictionary(2)));
    EXPECT_TRUE(errors.empty());
}

TEST_P(PolicyPartTest, OnlyARegularFileThatOthersCannotWriteIsUsed)
{
    const bool isFragment = GetParam().isFragment;
    struct Case {
        std::string command;
        bool isUsed;
        /// Part of the only log line; empty if no line is expected.
        std::string line;
    };
    const Case cases[] = {
        {"chmod 602 $F", false, file + ": can be written by others (mode 0602)"},
        {"chmod 620 $F", false, file + ": can be written by others (mode 0620)"},
        {"chmod 644 $F", true, ""},
        {"chmod 777 ${F%/*}", false, "(mode 0777)"},
        {"chmod 1775 ${F%/*}", !isFragment, isFragment ? "(mode 1775)" : ""},
        {"chmod 757 etc", false, "etc can be written by others (mode 0757)"},
        {"chmod 1777 etc", true, ""},
        {"> $DIR/managed.json; chmod 602 $DIR/managed.json", false, "managed.json: can be written by others"},
        {"> $DIR/managed.plist; chmod 602 $DIR/managed.plist", !isFragment,
         "managed.plist: can be written by others"},
        {"rm $F; mkdir $F", false, isFragment ? "" : "json: is not a regular file"},
        {"rm $F; mkfifo -m 600 $F", false, "json: is not a regular file"},
        {"ln -sf ${F##*/} $F", false, "json: cannot be opened: Too many levels of symbolic links"},
        {"ln -sf /dev/null $F", false, "json: /dev/null can be written by others"},
        {"ln -sf none $F", false, isFragment ? "json: is a symbolic link to a missing file" : ""},
        {"ln -sf /dev/null/none $F", false, isFragment ? "json: is a symbolic link to a missing file" : ""},
        {"chown 12345 etc", false, "belongs to user 12345"},
    };
    for (const Case& row : cases) {
        if (row.command.starts_with("chown") && ::geteuid() != 0)
            continue;
        SCOPED_TRACE(row.command);
        shell("rm -rf etc; mkdir -p ${F%/*}; policy 1 > $F; DIR=etc/quorvane; " + row.command);
        if (row.line.ends_with("is not a regular file")) {
            EXPECT_EQ(readPolicyFile(folder.path(file), TrustCheck::skipped).reason, "is not a regular file");
        }
        ManagedPolicyFile fresh(places, log.adapterLog);
        for (const bool isFirst : {true, false}) {
            EXPECT_EQ(fresh.dictionary(), row.isUsed ? dictionary(1) : std::nullopt);
            const auto lines = log.takeLines();
            EXPECT_EQ(lines.size(), isFirst && !row.line.empty() ? 1U : 0U);
            EXPECT_THAT(lines, testing::Each(HasSubstr(row.line)));
            fresh.reload();
        }
    }
}

/// Also if only the mode of a folder changes, and the file itself stays the same.
TEST_P(PolicyPartTest, ErrorThatComesBackIsLoggedAgain)
{
    shell("mkdir -p ${F%/*} etc/other; policy 1 > etc/other/file; ln -s $PWD/etc/other/file $F");
    for (const std::string at : {"etc/other", "${F%/*}", "etc"}) {
        for (const bool isSafe : {true, false, true, false, true}) {
            shell("chmod " + std::string(isSafe ? "755 " : "757 ") + at);
            policy.reload();
            EXPECT_EQ(policy.dictionary(), isSafe || GetParam().isFragment ? dictionary(1) : std::nullopt);
            EXPECT_EQ(log.takeLines().size(), isSafe ? 0U : 1U) << at;
        }
    }
}

TEST_P(PolicyPartTest, ChangeDuringAReadIsReadNext)
{
    folder.write(file, "");
    policy.onError([&](PolicyFileReading::State) {
        folder.replace(file, json(1));
        policy.reload();
    });
    EXPECT_EQ(policy.dictionary(), std::nullopt);
    EXPECT_EQ(policy.dictionary(), dictionary(1));
}

TEST_F(ManagedPolicyFileTest, WalksPathsLikeTheKernel)
{
    folder.write("a/b/file", "");
    fs::create_directory_symlink("../a/./b/", folder.path("a/link"));
    fs::create_symlink(folder.path("a/link/../link/file"), folder.path("absolute"));
    fs::create_symlink("loop", folder.path("loop"));
    for (int links = 1; links <= 41; ++links) // Named after the number of links to follow.
        fs::create_symlink(links > 1 ? std::to_string(links - 1) : "a/b/file",
                           folder.path(std::to_string(links)));
    for (const char* name : {"a/b/file", "a/link/file", "absolute", "a/../a//b/./file", "a/b/", "a/none/file",
                             "a/b/file/", "a/b/file/x", "loop", "../../../../..", "40", "41"}) {
        SCOPED_TRACE(name);
        const PathStep last = walkPath(folder.path(name)).back();
        std::error_code error;
        const fs::path path = fs::canonical(folder.path(name), error);
        EXPECT_EQ(last.error, error.value());
        EXPECT_EQ(last.kind == PathStep::Kind::missing, last.error != 0);
        EXPECT_TRUE(error || last.path == path);
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
        std::string name;
        std::string untrusted;
        for (std::string word; words >> word;) {
            if (word.ends_with(':'))
                name = word == "b:" ? "managed.json"
                                    : "managed.d/" + word.substr(0, word.size() - 1) +
                                          (word.size() == 2 ? ".json" : "");
            else if (word == "#")
                untrusted = name;
            else if (word == "<9" || word == "!")
                contents[name] =
                    word == "!" ? "{" : "<plist><dict><key>k</key><integer>9</integer></dict></plist>";
            else
                contents[name] +=
                    fmt::format(R"({}"{}": {})", contents[name].empty() ? "" : ", ", word[0], word.substr(1));
        }
        for (const auto& [path, keys] : contents) {
            folder.write("etc/quorvane/" + path, keys.starts_with('<') ? keys : "{" + keys + "}");
            if (path == untrusted)
                ::chmod(folder.path("etc/quorvane/" + path).c_str(), 0602);
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
        ManagedPolicyFile fresh(places, log.adapterLog);
        EXPECT_EQ(text(fresh.dictionary()), expected) << files;
        EXPECT_THAT(log.takeLines(), testing::IsEmpty()) << files;
    }
}

TEST_F(FragmentTest, UnusableFileDropsNoKeys)
{
    struct Step {
        const char* files;
        const char* expected;
        /// Error lines, and what each contains. Equal ones are logged once.
        std::size_t lineCount = 0;
        const char* lines = "";
    };
    const char* noKeys = "its keys are not used until";
    const char* noChange = "no change is applied until";
    const char* noEarlier = "there is no earlier configuration to keep";
    const std::vector<Step> cases[] = {
        {{"a: k1", "k1"}, {"a: !", "k1", 1, "last valid content of this file stays"}},
        {{"a: k1", "k1"}, {"a: ! b: k0 l2", "k1 l2", 1, "stays in effect"}}, // Others still change.
        {{"b: k1 a: l1", "k1 l1"}, {"b: ! a: l2", "k1 l2", 1, "last valid configuration stays"}},
        {{"b: k1", "k1"}, {"b: k2 a: !", "k2", 1, noKeys}},
        {{"b: k1 a: k2", "k2"}, {"b: k1", "k1"}, {"b: k1 a: !", "k1", 1, noKeys}},
        {{"b: k1 a: l2", "k1 l2"}, {"a: l2", "l2"}, {"b: ! a: l2", "l2", 1, noEarlier}},
        {{"b: k1 a: !", "none", 1, noChange}, {"b: k1 a: l2", "k1 l2"}}, // Unusable at the start.
        {{"b: ! a: l1", "none", 1, noEarlier}, {"a: l1", "l1"}},
        {{"a: !", "none", 1, noChange}, {"b: k1 a: ! c: l1", "none", 1, noChange}},
        {{"b: k1", "k1"}, {"b: ! a: ! c: !", "k1", 3, "stays in effect|its keys are not used until"}},
        {{"b: k1 # a: l1", "none", 1, "it counts as missing"}, {"b: ! a: l1", "none", 1, noEarlier}},
        {{"b: k1 a: l1", "k1 l1"},
         {"b: k1 # a: l1", "none", 1, "it counts as missing"},
         {"b: ! a: l1", "l1", 1, noEarlier}},
        {{"b: k1 a: l1", "k1 l1"}, {"b: k1 a: l2 #", "k1 l1", 1, "stays in effect"}},
    };
    for (const auto& steps : cases) {
        ManagedPolicyFile fresh(places, log.adapterLog);
        for (const Step& step : steps) {
            SCOPED_TRACE(std::string(steps.front().files) + ", later " + step.files);
            write(step.files);
            for (const bool isRepeated : {false, true}) {
                fresh.reload();
                EXPECT_EQ(text(fresh.dictionary()), step.expected);
                const auto lines = log.takeLines();
                EXPECT_EQ(lines.size(), isRepeated ? 0U : step.lineCount);
                EXPECT_THAT(lines, testing::Each(testing::ContainsRegex(step.lines)));
            }
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
