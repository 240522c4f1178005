#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace Qvctl {

/// Formats --help for the width of the terminal. The help of the program itself fits on one screen of 80
/// columns and 24 lines: descriptions end at the first semicolon or parenthesis. Shows no lists of choices;
/// the descriptions mention them.
class HelpFormatter final : public CLI::Formatter {
public:
    HelpFormatter();

    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_option(const CLI::Option* option, bool isArgument) const override;
    std::string make_subcommand(const CLI::App* command) const override;

private:
    [[nodiscard]] std::string overview(const CLI::App& program) const;
};

/// The columns for wrapped text: the variable COLUMNS, else the width of the terminal on standard output,
/// else 80; at least 40 and at most 120.
std::size_t outputWidth();

} // namespace Qvctl
