#include "Tools/qvctl/Doctor/Examination.h"

#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

namespace Qvctl::Doctor {

namespace {

namespace json = boost::json;

Tone toneOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::ok:
        return Tone::good;
    case Verdict::warning:
        return Tone::warning;
    case Verdict::failed:
        return Tone::bad;
    case Verdict::skipped:
        break;
    }
    return Tone::faint;
}

/// Flushes the output, because the next check may take several seconds.
void printCheck(const CheckResult& check)
{
    const bool isFaint = check.verdict == Verdict::skipped;
    const auto verdict = fmt::format("{:<9}", verdictName(check.verdict));
    const auto identifier = fmt::format("{:<26}", check.identifier);
    print("{}{}{}\n", toned(toneOf(check.verdict), verdict), identifier,
          toned(isFaint ? Tone::faint : Tone::plain, check.found));
    // The fix of a check that was skipped because of another one is printed there.
    if (!check.fix.empty() && check.cause.empty())
        print("{:<35}-> {}\n", "", check.fix);
    flushOutput();
}

void printSummary(const CheckReport& report)
{
    const std::size_t warningCount = report.count(Verdict::warning);
    print("\n{} ok, {} {}, {} failed, {} skipped.\n", report.count(Verdict::ok), warningCount,
          warningCount == 1 ? "warning" : "warnings", report.count(Verdict::failed),
          report.count(Verdict::skipped));
    if (const CheckResult* first = report.firstFailure())
        print("Start with {}.\n", toned(Tone::bad, first->identifier));
}

json::value optionalText(const std::string& text)
{
    return text.empty() ? json::value() : json::value(text);
}

json::object asJSON(const CheckReport& report)
{
    json::array checks;
    for (const CheckResult& check : report.checks())
        checks.push_back({{"identifier", check.identifier},
                          {"verdict", verdictName(check.verdict)},
                          {"found", check.found},
                          {"mend", optionalText(check.fix)},
                          {"cause", optionalText(check.cause)}});
    const CheckResult* first = report.firstFailure();
    return {{"isHealthy", first == nullptr},
            {"firstFailure", first != nullptr ? json::value(first->identifier) : json::value()},
            {"checks", std::move(checks)}};
}

} // namespace

std::string timeText(Platform::Date date)
{
    // The parts of "2026-11-21T15:04:05.678Z".
    constexpr std::size_t dateSize = 10;
    constexpr std::size_t timeSize = 5;
    std::string text = date.utcText();
    if (text.size() < dateSize + 1 + timeSize)
        return text;
    return fmt::format("{} {} UTC", text.substr(0, dateSize), text.substr(dateSize + 1, timeSize));
}

} // namespace Qvctl::Doctor

namespace Qvctl {

ExitCode doctor(const Options& options, const DoctorOptions& limits)
{
    using namespace Doctor;
    Examination examination{options, limits, CheckReport([&](const CheckResult& check) {
                                if (!options.isJSON)
                                    printCheck(check);
                            })};
    for (const auto examine : {examinePolicy, examineState, examineSuite, examineBus, examineNotifications,
                               examineBackend, examineUpload, examineOutcomes})
        examine(examination);
    if (options.isJSON)
        printJSON(asJSON(examination.report));
    else
        printSummary(examination.report);
    return examination.report.firstFailure() == nullptr ? success : checkFailed;
}

} // namespace Qvctl
