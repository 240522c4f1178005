// Writes the manual pages and the completions, part of the build. Everything in them comes from the parsers
// of the command lines, the table of managed keys and `Prose.cpp`, and nothing from the clock.

#include "App/LaunchOptions.h"
#include "Tools/Manual/CommandDescription.h"
#include "Tools/Manual/Completions.h"
#include "Tools/Manual/ManualPages.h"
#include "Tools/Manual/Prose.h"
#include "Tools/qvctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

namespace {

using namespace Manual;

void write(const std::filesystem::path& file, std::string_view text)
{
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << text << std::flush;
}

void writeAll(const std::filesystem::path& folder)
{
    App::LaunchOptions launchOptions;
    const Qvctl::CommandLine console;
    const std::map<const Prose*, CommandDescription> programs{
        {&applicationProse(), describe(*App::makeCommandLine(launchOptions))},
        {&consoleProse(), describe(console.parser())},
    };
    for (const auto& [prose, program] : programs) {
        const std::string name = prose->name;
        write(folder / "man/man1" / (name + ".1"), programPage(program, *prose));
        write(folder / "bash-completion/completions" / name, bashCompletion(program));
        write(folder / "zsh/vendor-completions" / ("_" + name), zshCompletion(program));
        write(folder / "fish/vendor_completions.d" / (name + ".fish"), fishCompletion(program));
    }
    write(folder / "man/man5/quorvane-mdm-managed.5", policyPage(policyProse()));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fmt::print(stderr, "Usage: {} FOLDER\n", argv[0]);
        return 64;
    }
    try {
        writeAll(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}: {}\n", argv[0], argv[1], error.what());
        return 70;
    }
}
