#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl::Doctor {

enum class Verdict { ok, warning, failed, skipped };

/// "ok", "warning", "failed" or "skipped".
std::string_view verdictName(Verdict verdict);

/// The result of one check.
struct CheckResult {
    /// Never changes, so that programs can rely on it: "policy.file".
    std::string identifier;
    Verdict verdict;
    /// What was found, in one sentence.
    std::string found;
    /// What to do about it; empty if nothing.
    std::string fix;
    /// The failed check that prevented this one; empty for other checks.
    std::string cause;
};

/// Collects the results of the checks in order. A check that could only repeat an earlier failure is skipped,
/// so that only root causes are reported as failed:
///
///     if (report.isPrevented("suite.current", {"suite.readable"}))
///         return;
class CheckReport {
public:
    /// Calls `observer` with each result as it is added.
    explicit CheckReport(std::function<void(const CheckResult&)> observer) : m_observer(std::move(observer))
    {}

    void ok(std::string_view identifier, std::string found);
    void warning(std::string_view identifier, std::string found, std::string fix);
    void failed(std::string_view identifier, std::string found, std::string fix);
    /// For a check that does not apply.
    void skipped(std::string_view identifier, std::string found, std::string fix = {});

    /// Returns true and adds `identifier` as skipped if one of the checks in `needed` failed or was itself
    /// skipped because of a failure. The result's sentence begins with `found`.
    bool isPrevented(std::string_view identifier, std::initializer_list<std::string_view> needed,
                     std::string_view found = {});

    [[nodiscard]] const std::vector<CheckResult>& checks() const { return m_checks; }
    [[nodiscard]] std::size_t count(Verdict verdict) const;
    /// Null if none failed.
    [[nodiscard]] const CheckResult* firstFailure() const;

private:
    void add(CheckResult check);
    [[nodiscard]] const CheckResult* find(std::string_view identifier) const;

    std::function<void(const CheckResult&)> m_observer;
    std::vector<CheckResult> m_checks;
};

} // namespace Qvctl::Doctor
