#include "Tests/Trials/ProcessFigures.h"
#include "Tests/Trials/RegisteredApplication.h"
#include "Tests/Trials/Trials.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <utility>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

/// The figures that must not grow, measured at one moment.
struct Sample {
    std::int64_t memoryBytes;
    std::int64_t descriptors;
    std::int64_t storeBytes;
    /// Size of the largest write-ahead log, which SQLite checkpoints after 1000 pages.
    std::int64_t logBytes;
};

Sample sampleOf(const ThrowawayDevice& device, pid_t process)
{
    Sample sample{privateBytes(process), descriptorCount(process), 0, 0};
    for (const auto& entry : fs::recursive_directory_iterator(device.path("data"))) {
        if (!entry.is_regular_file())
            continue;
        const auto size = static_cast<std::int64_t>(entry.file_size());
        if (entry.path().native().ends_with("-wal"))
            sample.logBytes = std::max(sample.logBytes, size);
        else
            sample.storeBytes += size;
    }
    return sample;
}

/// Requires that the median of the last third exceeds that of the middle third by at most `slack`.
void requireNoGrowth(const std::vector<Sample>& samples, std::int64_t Sample::*figure, std::string_view name,
                     std::int64_t slack)
{
    const auto median = [&](std::size_t begin, std::size_t end) {
        std::vector<std::int64_t> values;
        for (std::size_t i = begin; i < end; ++i)
            values.push_back(samples[i].*figure);
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    const std::size_t third = samples.size() / 3;
    const auto before = median(third, 2 * third);
    const auto after = median(2 * third, samples.size());
    fmt::print("{:<12} {:>12} at first, {:>12} in the middle, {:>12} at the end\n", name,
               samples.front().*figure, before, after);
    require(after - before <= slack, "{} are growing", name);
}

/// The desktop's services on the session bus: a notification server, and a portal with a color scheme.
class FakeDesktop {
public:
    explicit FakeDesktop(bool isDark)
    {
        using Settings = std::map<std::string, std::map<std::string, sdbus::Variant>>;
        const Settings settings{
            {"org.freedesktop.appearance", {{"color-scheme", sdbus::Variant(isDark ? 1U : 2U)}}}};
        constexpr const char* server = "org.freedesktop.Notifications";
        addMethod(*m_server, server, "GetCapabilities", [] { return std::vector<std::string>{"body"}; });
        addMethod(*m_server, server, "Notify",
                  [this](const std::string&, std::uint32_t, const std::string&, const std::string&,
                         const std::string&, const std::vector<std::string>&,
                         const std::map<std::string, sdbus::Variant>&,
                         std::int32_t) { return ++m_notificationCount; });
        addMethod(*m_portal, "org.freedesktop.portal.Settings", "ReadAll",
                  [settings](const std::vector<std::string>&) { return settings; });
        publishMethods(*m_server);
        publishMethods(*m_portal);
        takeName(*m_bus, server);
        takeName(*m_bus, "org.freedesktop.portal.Desktop");
        m_bus->enterEventLoopAsync();
    }
    ~FakeDesktop() { m_bus->leaveEventLoop(); }
    FakeDesktop(const FakeDesktop&) = delete;
    FakeDesktop& operator=(const FakeDesktop&) = delete;

private:
    std::uint32_t m_notificationCount = 0;
    std::unique_ptr<sdbus::IConnection> m_bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> m_server =
        sdbus::createObject(*m_bus, ObjectPath("/org/freedesktop/Notifications"));
    std::unique_ptr<sdbus::IObject> m_portal =
        sdbus::createObject(*m_bus, ObjectPath("/org/freedesktop/portal/desktop"));
};

/// An application with a distributor and a backend, under constant load.
class Soak {
public:
    explicit Soak(const TrialPrograms& programs)
        : m_device(programs.folder, m_backend), m_faults(m_device, programs.faultLibrary)
    {
        m_distributor.installService(programs.folder);
        m_device.replacePolicy(m_device.policy({"app0"}));
        m_application = m_device.start("auto");
        require(m_distributor.waitForRegistration(), "the application did not register");
        require(m_application->waitForLine("Configuration updated"), "the first policy was not applied");
    }

    /// Sends a new endpoint and waits for the upload of the new token.
    void upload()
    {
        m_distributor.sendEndpoint(nextEndpoint());
        m_subscription = uploadedSubscription(m_backend);
    }
    /// Restarts a service of the desktop or moves the clock, each in turn.
    void disturb()
    {
        switch (++m_disturbanceCount % 3) {
        case 0:
            require(m_distributor.restart(nextEndpoint()), "the session bus cannot start the application");
            require(m_distributor.waitForRegistration(), "the application did not register again");
            m_subscription = uploadedSubscription(m_backend);
            break;
        case 1:
            m_isDark = !m_isDark;
            m_desktop.reset();
            m_desktop.emplace(m_isDark);
            break;
        default:
            constexpr std::int64_t day = 86'400;
            m_faults->clockOffsetSeconds = m_faults->clockOffsetSeconds == 0 ? day : 0;
        }
    }
    void push()
    {
        const std::string payload = fmt::format(
            R"({{"aps": {{"alert": {{"title": "Message {}", "body": "{:*<500}"}}}}}})", ++m_pushCount, "");
        require(m_distributor.deliver(encryptWebPush(m_subscription, payload)) ==
                    Distributor::Answer::acknowledged,
                "push {} was not acknowledged", m_pushCount);
    }
    /// Changes the policy and waits until it is applied. Do not store anything else meanwhile: that would
    /// delay the update.
    void change()
    {
        ++m_changeCount;
        std::vector<std::string> apps;
        for (int i = 0; i < 100; ++i)
            apps.push_back(fmt::format("app{}-{}", m_changeCount, i));
        m_device.replacePolicy(m_device.policy(apps));
        require(m_application->waitForLine("Configuration updated"), "change {} was not applied",
                m_changeCount);
    }

    [[nodiscard]] Sample sample() const { return sampleOf(m_device, m_application->processId()); }
    void end()
    {
        require(m_application->end() == 0, "the application did not exit with 0 after SIGTERM");
        const StoredState state = m_device.inspect();
        fmt::print("{} uploads, {} pushes, {} changes, {} disturbances, version {}, history of {}\n",
                   m_uploadCount, m_pushCount, m_changeCount, m_disturbanceCount, state.configVersion,
                   state.history.size());
    }

private:
    std::string nextEndpoint() { return fmt::format("https://push.example.org/{}", ++m_uploadCount); }

    const TemporaryFolder m_folder;
    TestBackend m_backend{{.folder = m_folder.path()}};
    TrialDevice m_device;
    Faults m_faults;
    Distributor m_distributor{m_device, Distributor::Behavior::responsive};
    std::optional<FakeDesktop> m_desktop{std::in_place, false};
    std::unique_ptr<ChildProcess> m_application;
    WebPushSubscription m_subscription;
    int m_uploadCount = 0;
    int m_pushCount = 0;
    int m_changeCount = 0;
    int m_disturbanceCount = 0;
    bool m_isDark = false;
};

} // namespace

void soakTrial(const TrialPrograms& programs, double minutes)
{
    constexpr int sampleCount = 60;
    const auto length = std::chrono::duration<double, std::ratio<60>>(minutes);
    Soak soak(programs);
    std::vector<Sample> samples;
    const auto begin = steady_clock::now();
    while (steady_clock::now() - begin < length) {
        soak.change();
        soak.disturb();
        for (const auto busyUntil = steady_clock::now() + 1s; steady_clock::now() < busyUntil;) {
            soak.upload();
            for (int i = 0; i < 5; ++i)
                soak.push();
        }
        const auto elapsed = steady_clock::now() - begin;
        if (elapsed >= length * static_cast<double>(samples.size() + 1) / sampleCount)
            samples.push_back(soak.sample());
    }
    soak.end();
    require(samples.size() >= 9, "the run is too short for a result");
    constexpr std::int64_t pages = 256 * 1024;
    requireNoGrowth(samples, &Sample::memoryBytes, "bytes", samples.front().memoryBytes / 100 + pages);
    requireNoGrowth(samples, &Sample::descriptors, "descriptors", 1);
    requireNoGrowth(samples, &Sample::storeBytes, "store bytes", pages);
    constexpr std::int64_t fullLog = 1000 * 4120 + 1024 * 1024; // 1000 pages plus the last commit.
    for (const Sample& sample : samples)
        require(sample.logBytes <= fullLog, "a write-ahead log has {} bytes", sample.logBytes);
}
