#include "Tests/Trials/TestBed.h"

#include "Platform/Linux/LocalPushService.h"
#include "Tools/Backend/PushSender.h"

#include <csignal>
#include <thread>

using namespace std::chrono_literals;

TestBed::TestBed(const TrialPrograms& programs)
    : m_programs(programs.folder),
      m_backend(std::make_unique<TestBackend>(TestBackend::Options{.folder = m_folder.path()})),
      m_device(programs.folder, *m_backend),
      m_faults(m_device, programs.faultLibrary)
{
    m_device.replacePolicy(m_device.policy({m_app}));
    start();
    expectLine("Device token uploaded");
}

void TestBed::start(const std::vector<std::string>& options)
{
    std::vector<std::string> arguments{"--log-stderr"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    m_application = m_device.startApplication(arguments);
}

void TestBed::kill()
{
    m_application->signal(SIGKILL);
    m_application->waitForExit();
}

void TestBed::end()
{
    const auto exitCode = m_application->end();
    requireWithLog(exitCode == 0, fmt::format("SIGTERM: exit code {} instead of 0", exitCode.value_or(-1)));
}

void TestBed::expectLine(std::string_view text, std::chrono::milliseconds timeout)
{
    requireWithLog(m_application->waitForLine(text, timeout), fmt::format("not logged: {}", text));
}

std::string TestBed::takeUpload(const std::function<bool(const std::string& token)>& isExpected)
{
    for (const auto end = std::chrono::steady_clock::now() + 20s; std::chrono::steady_clock::now() < end;) {
        for (const TestBackend::Request& request : m_backend->takeRequests()) {
            const auto token = uploadedToken(request);
            require(token.has_value(), "incomplete token upload: {}", request.body);
            if (isExpected(*token))
                return *token;
        }
        std::this_thread::sleep_for(100us);
    }
    requireWithLog(false, "the token was not uploaded");
    return {};
}

void TestBed::change()
{
    m_app = fmt::format("change{}", ++m_changeCount);
    m_device.replacePolicy(m_device.policy({m_app}));
}

TestBed::Push TestBed::push()
{
    Push push{fmt::format("push{}", ++m_pushCount), {}};
    push.answer = Platform::Linux::sendToLocalPushService(m_device.pushSocket(), recordedPush(push.title));
    return push;
}

StoredState TestBed::requireNothingLost(const StoredState& before, const Push& pushed)
{
    StoredState now = m_device.inspect();
    requireWithLog(now.configVersion >= before.configVersion,
                   fmt::format("version {} after {}", now.configVersion, before.configVersion));
    requireWithLog(!pushed.isAcknowledged() || now.hasPush(pushed.title),
                   pushed.title + " was acknowledged but is not in the history");
    constexpr std::size_t historyLimit = 100;
    if (now.history.size() == historyLimit)
        return now; // The oldest may have been dropped.
    for (const auto& entry : before.history)
        requireWithLog(now.hasPush(entry.title.value_or("")),
                       entry.title.value_or("") + " is no longer in the history");
    return now;
}

StoredState TestBed::requireHealthy(const StoredState& before)
{
    change();
    expectLine("Configuration updated");
    const Push pushed = push();
    requireWithLog(pushed.isAcknowledged(), "a push was refused: " + pushed.answer);
    StoredState now = requireNothingLost(before, pushed);
    requireWithLog(now.snapshot &&
                       now.snapshot->config.allowedAppBundleIds == Core::TextList{"com.example." + m_app},
                   "the last change is not stored");
    return now;
}

void TestBed::requireWithLog(bool isTrue, const std::string& what) const
{
    if (isTrue)
        return;
    std::string lines;
    if (m_application) {
        m_application->waitForExit(100ms); // Reads the remaining output.
        lines = fmt::format("\n  {}", fmt::join(m_application->lines(), "\n  "));
    }
    throw Violation(what + lines);
}
