// The completion of words in shells.

#include "Tests/EndToEnd/ProgramTest.h"

using Words = std::vector<std::string>;

namespace {

struct Shell {
    const char* name;
    Words command;
    /// Prints the words that complete $LINE, which ends at the cursor.
    const char* script;
};

const Shell shells[] = {
    {"Bash", {"bash", "-c"}, R"(
        for script in $COMPLETIONS/*.bash; do . $script; done
        # Splits the line as readline does: at spaces, and around "=".
        read -ra COMP_WORDS <<< "${LINE//=/ = }"
        [[ $LINE == *' ' ]] && COMP_WORDS+=('')
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        _${COMP_WORDS//-/_}
        printf '%s\n' "${COMPREPLY[@]}"
    )"},
    {"Fish", {"fish", "--no-config", "-c"}, R"(
        for script in $COMPLETIONS/*.fish; source $script; end
        # Without matches inside a word, which version 4 adds.
        complete -C "$LINE" | string match -- (string split -r -m1 ' ' $LINE)[-1]'*'
        true
    )"},
    // The shell's own functions, which only work at its prompt, are replaced: they print the candidates.
    {"Zsh", {"zsh", "-fc"}, R"(
        compset() { PREFIX=${PREFIX#${~2}} }
        _files() { print -rl -- $PREFIX*(N) }
        _describe() { print -rl -- ${(M)${(@)${(@P)2}%%:*}:#$PREFIX*} }
        _arguments() { print -rl -- ${(M)${(@)${(@)@#\(*\)}%%[\[=]*}:#$PREFIX*} }
        words=("${(@s: :)LINE}") CURRENT=$#words PREFIX=$words[CURRENT]
        autoload -U $COMPLETIONS/_$words[1]
        _$words[1]
    )"},
};

/// Runs the completion scripts in a folder with two files.
class CompletionTest : public ProgramTest, public testing::WithParamInterface<Shell> {
protected:
    CompletionTest()
    {
        std::filesystem::create_directory(device.path("files"));
        device.write(device.path("files/a file.json"), "{}");
        device.write(device.path("files/b.json"), "{}");
    }
    void SetUp() override
    {
        if (shell("command -v " + GetParam().command.front()).exitCode != 0)
            GTEST_SKIP() << "needs the shell";
    }
    [[nodiscard]] Words complete(const std::string& line) const
    {
        Words command = GetParam().command;
        command.push_back(std::string("cd $FILES; ") + GetParam().script);
        ChildProcess process(command,
                             {{"PATH", std::string(QV_PROGRAMS "/Tools/qvctl:") + std::getenv("PATH")},
                              {"FILES", device.path("files")},
                              {"COMPLETIONS", QV_SOURCES "/Packaging/completions"},
                              {"LINE", line}});
        EXPECT_EQ(process.waitForExit(), 0) << line << testing::PrintToString(process.lines());
        Words words = process.lines();
        std::erase(words, "");
        // Drops the description, and the option of "--option=word".
        for (std::string& word : words) {
            word = word.substr(0, word.find('\t'));
            word = word.substr(word.find('=') + 1);
        }
        return words;
    }
    /// The words of the app's help that `expression` selects, separated by commas.
    [[nodiscard]] Words wordsOfHelp(const std::string& expression) const
    {
        const auto process = device.startShell("$PROGRAMS/App/quorvane-mdm --help | sed -nE 's/" +
                                               expression + "/\\1/p' | tr , '\\n'");
        process->waitForExit();
        return process->lines();
    }
};

TEST_P(CompletionTest, CompletesCommandsValuesAndFiles)
{
    const std::pair<const char*, Words> rows[] = {
        {"qvctl --json config s", {"show", "set", "schema"}},
        {"qvctl --managed-configuration config st", {"status"}},
        {"qvctl config lint ", {"a file.json", "b.json"}},
        {"qvctl config lint b.json ", {"a file.json", "b.json"}},
        {"qvctl status --managed-configuration b", {"b.json"}},
        {"qvctl --managed-configuration=b", {"b.json"}},
        {"qvctl config schema --format ", {"json-schema", "appconfig", "sample"}},
        {"qvctl config schema --format=s", {"sample"}},
        {"qvctl config schema --format=sample --j", {"--json"}},
        {"qvctl status --check=r", {"running"}},
        {"qvctl wait --u", {"--uploaded"}},
        {"qvctl wait --version ", {"1"}},
        {"qvctl log --limit ", {}},
        {"qvctl help config s", {"show", "set", "schema"}},
        {"qvctl privacy grant ", {"notifications"}},
        {"quorvane-mdm --managed-configuration b", {"b.json"}},
        {"quorvane-mdm --push ", wordsOfHelp(R"(^  --push.*\{(.*)\}.*)")},
        {"quorvane-mdm -", wordsOfHelp("^  (-[^ ]+).*")},
    };
    for (const auto& [line, expected] : rows) {
        // The completion of option values by `_arguments` of zsh is not tested.
        if (GetParam().name == std::string("Zsh") && std::string_view(line).starts_with("quorvane-mdm --"))
            continue;
        EXPECT_THAT(complete(line), testing::UnorderedElementsAreArray(expected)) << line;
    }
}

INSTANTIATE_TEST_SUITE_P(Shells, CompletionTest, testing::ValuesIn(shells),
                         [](const auto& shell) { return std::string(shell.param.name); });

} // namespace
