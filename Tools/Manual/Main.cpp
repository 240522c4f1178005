// Writes the manual pages and completions as part of the build: from the parsers of the command lines, the
// table of managed keys and `Prose.cpp`.

#include "App/LaunchOptions.h"
#include "Tools/Manual/Writers.h"
#include "Tools/qvctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

namespace {

using namespace Manual;
namespace fs = std::filesystem;

void write(const fs::path& file, const std::string& text)
{
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << text << std::flush;
}

void writeProgram(const fs::path& folder, const CLI::App& parser, const Prose& prose)
{
    const Command program = describe(parser);
    write(folder / "man/man1" / (program.path + ".1"), programPage(program, prose));
    write(folder / "bash-completion/completions" / program.path, bashCompletion(program));
    write(folder / "zsh/vendor-completions" / ("_" + program.path), zshCompletion(program));
    write(folder / "fish/vendor_completions.d" / (program.path + ".fish"), fishCompletion(program));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fmt::print(stderr, "Usage: {} FOLDER\n", argv[0]);
        return 64;
    }
    try {
        const fs::path folder = argv[1];
        Platform::DeviceOptions options;
        writeProgram(folder, *App::makeCommandLine(options), applicationProse());
        writeProgram(folder, Qvctl::CommandLine().parser(), consoleProse());
        write(folder / "man/man5/quorvane-mdm-managed.5", policyPage(policyProse()));
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}: {}\n", argv[0], argv[1], error.what());
        return 70;
    }
}
