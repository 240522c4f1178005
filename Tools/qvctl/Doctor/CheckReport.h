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

/// What came of one check.
struct CheckResult {
    /// Stable, for programs: "policy.file".
    std::string identifier;
    Verdict verdict;
    /// One sentence.
    std::string found;
    /// What to do about it; empty when there is nothing to do here.
    std::string fix;
    /// The failed check that keeps this one from being made; empty when there is none.
    std::string cause;
};

/// Takes what the checks find, in the order of the chain. A check that could only repeat an earlier failure
/// is skipped, so that what failed is what must be mended.
///
///     if (report.isPrevented("suite.current", {"suite.readable"}))
///         return;
class CheckReport {
public:
    /// Calls `observer` for each check as it comes.
    explicit CheckReport(std::function<void(const CheckResult&)> observer) : m_observer(std::move(observer))
    {}

    void ok(std::string_view identifier, std::string found);
    void warning(std::string_view identifier, std::string found, std::string fix);
    void failed(std::string_view identifier, std::string found, std::string fix);
    /// For want of what would be checked.
    void skipped(std::string_view identifier, std::string found, std::string fix = {});

    /// When one of the checks in `needed` failed, or was kept from being made by one that failed: records
    /// `identifier` as skipped because of that failure and answers true. `found` is told in front of it.
    bool isPrevented(std::string_view identifier, std::initializer_list<std::string_view> needed,
                     std::string_view found = {});

    [[nodiscard]] const std::vector<CheckResult>& checks() const { return m_checks; }
    [[nodiscard]] std::size_t count(Verdict verdict) const;
    /// Null when none failed.
    [[nodiscard]] const CheckResult* firstFailure() const;

private:
    void add(CheckResult check);
    [[nodiscard]] const CheckResult* find(std::string_view identifier) const;

    std::function<void(const CheckResult&)> m_observer;
    std::vector<CheckResult> m_checks;
};

} // namespace Qvctl::Doctor
