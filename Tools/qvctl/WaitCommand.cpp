#include "Tools/qvctl/WaitCommand.h"

#include "Tools/qvctl/Conditions.h"
#include "Tools/qvctl/Deadline.h"
#include "Tools/qvctl/FileChanges.h"
#include "Tools/qvctl/LiveSession.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>

namespace Qvctl {

namespace {

using std::chrono::milliseconds;

/// How long an obstacle must last: a program that writes the policy file in place, or removes it before it
/// writes a new one, leaves it invalid for a moment.
constexpr milliseconds settleTime = std::chrono::seconds(1);

/// Looks at a condition now and whenever something on the device has changed. The watch is set up before the
/// first look, so no change is missed.
class Waiting {
public:
    explicit Waiting(const Options& options)
        : m_device(options, Device::Access::inspect),
          conditions(m_device, options),
          m_changes(conditions.watchedFiles(), m_device.log())
    {}

    WaitEnd until(const std::function<Verification()>& look, const WaitLimit& timeout)
    {
        std::optional<Deadline> deadline;
        if (timeout)
            deadline.emplace(*timeout);
        while (true) {
            const Verification found = look();
            const bool isLate = deadline && deadline->remaining() == milliseconds(0);
            if (found.isMet)
                return {};
            if (found.obstacle && (isLate || hasSettled()))
                return {*found.obstacle, found.reason};
            if (isLate)
                return {timedOut, reasonWithApplication(found.reason)};
            if (!found.obstacle)
                m_settling.reset();
            else if (!m_settling)
                m_settling.emplace(settleTime);
            reportMissingApplication();
            sleep(deadline);
        }
    }

private:
    /// Declared first, because threads started later must block its signals.
    LiveSession m_session;
    Device m_device;

public:
    const Conditions conditions;

private:
    [[nodiscard]] bool hasSettled() const { return m_settling && m_settling->remaining() == milliseconds(0); }

    [[nodiscard]] std::string reasonWithApplication(const std::string& reason) const
    {
        return conditions.running().isMet ? reason : reason + "; the app is not running";
    }

    void reportMissingApplication()
    {
        if (m_hasLooked || conditions.running().isMet) {
            m_hasLooked = true;
            return;
        }
        m_hasLooked = true;
        printError("the app is not running; waiting for it");
    }

    void sleep(const std::optional<Deadline>& deadline)
    {
        WaitLimit rest;
        if (deadline)
            rest = deadline->remaining();
        if (m_settling)
            rest = std::min(rest.value_or(milliseconds::max()), m_settling->remaining());
        switch (m_session.waitForEvent(m_changes.descriptor(), rest)) {
        case LiveSession::Event::ready:
            m_changes.reset();
            if (m_settling)
                m_settling.emplace(settleTime);
            break;
        case LiveSession::Event::timeout:
            break;
        case LiveSession::Event::signal:
            flushOutput();
            m_session.endBySignal();
        }
    }

    const FileChanges m_changes;
    std::optional<Deadline> m_settling;
    bool m_hasLooked = false;
};

} // namespace

WaitEnd waitUntilApplied(const Options& options, std::string_view content, const WaitLimit& timeout)
{
    Waiting waiting(options);
    return waiting.until([&] { return waiting.conditions.installedApplied(content); }, timeout);
}

ExitCode wait(const Options& options, const WaitOptions& goal)
{
    Waiting waiting(options);
    const Conditions& conditions = waiting.conditions;
    const WaitEnd end = waiting.until(
        [&] {
            return goal.version      ? conditions.reached(*goal.version)
                   : goal.isUploaded ? conditions.uploaded()
                                     : conditions.applied();
        },
        goal.timeout);
    const std::int64_t version = conditions.version();
    boost::json::object object{{"isMet", end.exitCode == success}, {"configVersion", version}};
    if (end.exitCode != success)
        return fail(options, end.exitCode, end.reason, std::move(object));
    if (options.isJSON)
        printJSON(std::move(object));
    else if (goal.isUploaded)
        print("The device token is uploaded.\n");
    else
        print("Version {} is applied.\n", version);
    return success;
}

} // namespace Qvctl
