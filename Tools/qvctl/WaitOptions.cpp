#include "Tools/qvctl/WaitOptions.h"

#include "Tools/qvctl/Conditions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

namespace Qvctl {

namespace {

bool isCondition(const std::string& name)
{
    return std::any_of(namedConditions.begin(), namedConditions.end(),
                       [&](const NamedCondition& condition) { return condition.name == name; });
}

/// The names of all conditions, separated by commas.
std::string conditionNames()
{
    std::string names;
    for (const NamedCondition& condition : namedConditions)
        names.append(names.empty() ? "" : ",").append(condition.name);
    return names;
}

} // namespace

void addConditions(CLI::App& command, std::vector<std::string>& conditions)
{
    const auto store = [&conditions](const std::string& text) {
        conditions = CLI::detail::split(text.empty() ? conditionNames() : text, ',');
    };
    command
        .add_option_function<std::string>(
            "--check", store,
            "Exit with 1 unless these conditions are met, separated by commas (default: all): applied, "
            "running, uploaded")
        ->type_name(fmt::format("CONDITIONS:{{{}}}", conditionNames()))
        ->expected(0, 1)
        ->check(CLI::Validator(
            [](const std::string& text) {
                for (const std::string& name : CLI::detail::split(text, ',')) {
                    if (!text.empty() && !isCondition(name))
                        return fmt::format("'{}' is not a condition; use {}", name, conditionNames());
                }
                return std::string();
            },
            ""));
}

void addGoals(CLI::App& command, WaitOptions& goal)
{
    CLI::Option* version =
        command.add_option("--version", goal.version, "Wait until this version, or a later one, is applied")
            ->type_name("VERSION")
            ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()));
    CLI::Option* applied = command.add_flag_callback(
        "--applied", [] {}, "Wait until the values of the policy file are applied (default)");
    CLI::Option* uploaded = command.add_flag("--uploaded", goal.isUploaded,
                                             "Wait until the last upload of the device token has succeeded");
    version->excludes(applied)->excludes(uploaded);
    applied->excludes(uploaded);
    addTimeout(command, goal.timeout);
}

CLI::Option* addTimeout(CLI::App& command, WaitLimit& timeout)
{
    // More than 30 years: as good as no limit, and no duration overflows.
    constexpr double longestSeconds = 1e9;
    const auto store = [&timeout](double seconds) {
        if (seconds < longestSeconds)
            timeout = std::chrono::milliseconds(std::llround(std::ceil(seconds * 1000)));
        else
            timeout.reset();
    };
    return command
        .add_option_function<double>(
            "--timeout", store, "Give up after this time and exit with 75; 0 looks once (default: no limit)")
        ->type_name("SECONDS")
        ->check(CLI::Validator(
            [](const std::string& text) {
                double seconds = 0;
                return CLI::detail::lexical_cast(text, seconds) && seconds >= 0
                           ? std::string()
                           : fmt::format("'{}' is not a number of seconds, 0 or more", text);
            },
            ""));
}

} // namespace Qvctl
