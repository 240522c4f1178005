#include "Tools/qvctl/Policy/LintOutput.h"

#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>

namespace Qvctl::Policy {

namespace {

namespace json = boost::json;

std::string locationOf(const LintFinding& finding)
{
    const auto& position = finding.position;
    return position ? fmt::format("{}:{}:{}", finding.file.string(), position->line, position->column)
                    : finding.file.string();
}

Tone toneOf(Severity severity)
{
    return severity == Severity::error     ? Tone::bad
           : severity == Severity::warning ? Tone::warning
                                           : Tone::faint;
}

/// `severity` is the name of the finding's severity, possibly in color.
std::string lineOf(const LintFinding& finding, const Styled& severity)
{
    return styled("{}: {}: {} {}; {}{}{}\n", locationOf(finding), severity, subjectOf(finding),
                  finding.problem, finding.effect, finding.fix.empty() ? "" : "; ", finding.fix)
        .text;
}

} // namespace

std::string subjectOf(const LintFinding& finding)
{
    return finding.index ? fmt::format("{}[{}]", finding.key, *finding.index) : finding.key;
}

void printFindings(const std::vector<LintFinding>& findings)
{
    for (const LintFinding& finding : findings)
        writeOutput(lineOf(finding, toned(toneOf(finding.severity), severityName(finding.severity))));
}

void reportFindings(const std::vector<LintFinding>& findings)
{
    for (const LintFinding& finding : findings)
        writeDiagnostics(lineOf(finding, styled("{}", severityName(finding.severity))));
}

json::array findingsJSON(const std::vector<LintFinding>& findings)
{
    json::array list;
    for (const LintFinding& finding : findings) {
        json::object object{{"severity", severityName(finding.severity)},
                            {"path", finding.file.string()},
                            {"key", finding.key}};
        object["index"] = finding.index ? json::value(*finding.index) : json::value();
        object["line"] = finding.position ? json::value(finding.position->line) : json::value();
        object["column"] = finding.position ? json::value(finding.position->column) : json::value();
        object["problem"] = finding.problem;
        object["effect"] = finding.effect;
        object["mend"] = finding.fix;
        list.push_back(std::move(object));
    }
    return list;
}

bool hasErrors(const std::vector<LintFinding>& findings)
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const LintFinding& finding) { return finding.severity == Severity::error; });
}

} // namespace Qvctl::Policy
