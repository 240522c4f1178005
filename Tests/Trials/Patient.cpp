#include "Tests/Trials/Patient.h"

#include "Platform/Linux/LocalPushService.h"

#include <algorithm>
#include <csignal>

using namespace std::chrono_literals;

Patient::Patient(const TrialPrograms& programs)
    : m_backend(std::make_unique<TestBackend>(TestBackend::Options{.folder = m_folder.path()})),
      m_device(programs.folder, *m_backend),
      m_faults(m_device, programs.faultLibrary)
{
    m_device.replacePolicy(m_device.policy({m_app}));
    start();
    expectLine("Device token uploaded");
}

void Patient::end()
{
    m_application->signal(SIGTERM);
    const auto exitCode = m_application->waitForExit();
    demandHere(exitCode == 0, fmt::format("told to end, it ended with {}", exitCode.value_or(-1)));
}

void Patient::expectLine(std::string_view text, std::chrono::milliseconds timeout)
{
    demandHere(m_application->waitForLine(text, timeout), fmt::format("it did not write: {}", text));
}

void Patient::change()
{
    m_app = fmt::format("change{}", ++m_changeCount);
    m_device.replacePolicy(m_device.policy({m_app}));
}

Patient::Push Patient::push()
{
    Push push{fmt::format("push{}", ++m_pushCount), {}};
    push.answer = Platform::Linux::sendToLocalPushService(
        m_device.pushSocket(), fmt::format(R"({{"aps": {{"alert": "{}"}}}})", push.title));
    return push;
}

StoredState Patient::demandNothingLost(const StoredState& before, const Push& pushed)
{
    StoredState now = m_device.inspect();
    demandHere(now.configVersion >= before.configVersion,
               fmt::format("version {} after {}", now.configVersion, before.configVersion));
    const auto isStored = [&](const std::string& title) {
        return std::any_of(now.history.begin(), now.history.end(),
                           [&](const auto& entry) { return entry.title == title; });
    };
    demandHere(!pushed.isAcknowledged() || isStored(pushed.title),
               pushed.title + " was answered with ok and is not in the history");
    constexpr std::size_t historyLimit = 100;
    if (now.history.size() == historyLimit)
        return now; // The oldest may go.
    for (const auto& entry : before.history)
        demandHere(isStored(entry.title.value_or("")),
                   entry.title.value_or("") + " is gone from the history");
    return now;
}

StoredState Patient::demandHealth(const StoredState& before)
{
    change();
    expectLine("Configuration updated");
    const Push pushed = push();
    demandHere(pushed.isAcknowledged(), "a push is refused: " + pushed.answer);
    StoredState now = demandNothingLost(before, pushed);
    demandHere(now.snapshot &&
                   now.snapshot->config.allowedAppBundleIds == std::vector{"com.example." + m_app},
               "the last change is not the one that is stored");
    return now;
}

void Patient::demandHere(bool isSo, const std::string& what) const
{
    if (isSo)
        return;
    std::string lines;
    if (m_application) {
        m_application->waitForExit(100ms); // Reads what there is left to read.
        lines = fmt::format("\n  {}", fmt::join(m_application->lines(), "\n  "));
    }
    throw Violation(what + lines);
}
