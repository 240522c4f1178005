#include "Tools/qvctl/Doctor/CheckReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace Qvctl::Doctor {

std::string_view verdictName(Verdict verdict)
{
    constexpr std::array<std::string_view, 4> names{"ok", "warning", "failed", "skipped"};
    return names.at(static_cast<std::size_t>(verdict));
}

void CheckReport::ok(std::string_view identifier, std::string found)
{
    add({std::string(identifier), Verdict::ok, std::move(found), {}, {}});
}

void CheckReport::warning(std::string_view identifier, std::string found, std::string fix)
{
    add({std::string(identifier), Verdict::warning, std::move(found), std::move(fix), {}});
}

void CheckReport::failed(std::string_view identifier, std::string found, std::string fix)
{
    add({std::string(identifier), Verdict::failed, std::move(found), std::move(fix), {}});
}

void CheckReport::skipped(std::string_view identifier, std::string found, std::string fix)
{
    add({std::string(identifier), Verdict::skipped, std::move(found), std::move(fix), {}});
}

bool CheckReport::isPrevented(std::string_view identifier, std::initializer_list<std::string_view> needed,
                              std::string_view found)
{
    for (const std::string_view name : needed) {
        const CheckResult* check = find(name);
        if (check == nullptr || (check->verdict != Verdict::failed && check->cause.empty()))
            continue;
        std::string cause = check->verdict == Verdict::failed ? check->identifier : check->cause;
        std::string sentence = fmt::format("{}; fix {} first.", found.empty() ? "Not checked" : found, cause);
        add({std::string(identifier), Verdict::skipped, std::move(sentence),
             fmt::format("Fix {} first.", cause), cause});
        return true;
    }
    return false;
}

std::size_t CheckReport::count(Verdict verdict) const
{
    return static_cast<std::size_t>(
        std::count_if(m_checks.begin(), m_checks.end(),
                      [=](const CheckResult& check) { return check.verdict == verdict; }));
}

const CheckResult* CheckReport::firstFailure() const
{
    const auto found = std::find_if(m_checks.begin(), m_checks.end(), [](const CheckResult& check) {
        return check.verdict == Verdict::failed;
    });
    return found != m_checks.end() ? &*found : nullptr;
}

void CheckReport::add(CheckResult check)
{
    m_checks.push_back(std::move(check));
    m_observer(m_checks.back());
}

const CheckResult* CheckReport::find(std::string_view identifier) const
{
    const auto found = std::find_if(m_checks.begin(), m_checks.end(),
                                    [=](const CheckResult& check) { return check.identifier == identifier; });
    return found != m_checks.end() ? &*found : nullptr;
}

} // namespace Qvctl::Doctor
