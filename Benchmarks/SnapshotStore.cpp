#include "Benchmarks/BareStores.h"
#include "Benchmarks/Figures.h"
#include "Benchmarks/NullSink.h"
#include "Core/ConfigurationManager.h"
#include "Core/Constants.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <array>
#include <stdexcept>

namespace {

using Platform::UserDefaults;
using Platform::Linux::DeviceDefaults;

/// A typical managed dictionary, the same for the same arguments.
Platform::PropertyList managedDictionary(std::size_t appCount, std::string_view domain)
{
    std::string apps;
    for (std::size_t app = 0; app < appCount; ++app)
        fmt::format_to(std::back_inserter(apps), "{}{}.example.app{}", app > 0 ? "," : "", domain, app);
    namespace Keys = Core::Constants::ManagedConfigKeys;
    return Platform::PropertyList::Dictionary{
        {std::string(Keys::allowedAppBundleIds), apps},
        {std::string(Keys::organizationId), 4711},
        {std::string(Keys::BASE_DOMAIN), "mdm.example.org"},
        {std::string(Keys::API_KEY), "0123456789abcdef0123456789abcdef"},
        {std::string(Keys::DEVICE_ID), "DEV-1"},
    };
}

/// The real suites of a device, with a managed dictionary from memory.
class Domains final : public Platform::UserDefaultsDomains {
public:
    explicit Domains(DeviceDefaults& device) : m_device(device) {}
    UserDefaults& standard() override { return m_standard; }
    UserDefaults* suite(std::string_view name) override { return m_device.suite(name); }
    void deliver(const Platform::PropertyList& managed)
    {
        m_standard.values.insert_or_assign(std::string(UserDefaults::managedConfigurationKey), managed);
    }

private:
    DeviceDefaults& m_device;
    FakeUserDefaults m_standard;
};

/// A device folder with one stored snapshot, and its configuration manager.
class Device {
public:
    explicit Device(std::size_t appCount)
        : m_configurations{managedDictionary(appCount, "com"), managedDictionary(appCount, "org")}
    {
        save();
    }
    /// Throws if an adapter logged a problem: such a measurement is worthless.
    void verify()
    {
        const auto lines = m_log.takeLines();
        if (!lines.empty())
            throw std::runtime_error(lines.front());
        if (load()->configVersion != m_savedCount)
            throw std::runtime_error("the stored snapshot is not the one saved last");
    }

    void save()
    {
        m_domains.deliver(m_configurations.at(static_cast<std::size_t>(m_savedCount++ % 2)));
        m_manager->updateConfigurationFromMDM();
    }
    [[nodiscard]] std::optional<Core::ConfigurationSnapshot> load() const
    {
        return m_manager->loadConfigurationSnapshot();
    }

    [[nodiscard]] std::filesystem::path suiteFile() const
    {
        return m_paths.suite(Core::Constants::appGroupSuiteName);
    }
    [[nodiscard]] std::filesystem::path fileBeside(std::string_view name) const
    {
        return suiteFile().parent_path() / name;
    }
    [[nodiscard]] SnapshotRecord record() const
    {
        const auto snapshot = load();
        const Platform::Data bytes = snapshot->encode();
        return {{reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                snapshot->configVersion,
                snapshot->lastUpdated.secondsSinceReferenceDate,
                snapshot->schemaVersion};
    }

private:
    TemporaryFolder m_folder;
    Platform::Linux::DevicePaths m_paths{m_folder.path("state"),
                                         {.files = {m_folder.path("policy/managed.json")}}};
    Platform::SystemClock m_clock;
    RecordingUnifiedLog m_log;
    Platform::AdapterLog m_adapterLog{m_log, "com.quorvane.mdm"};
    DeviceDefaults m_defaults{m_paths, Platform::Storage::SQLiteUserDefaults::Access::readWrite, m_clock,
                              m_adapterLog};
    Domains m_domains{m_defaults};
    ManualScheduler m_scheduler;
    Platform::NotificationCenter m_center;
    Platform::OutcomeRecorder m_outcomes{
        {m_defaults.standard(), m_clock, m_scheduler.mainQueue, m_scheduler}};
    Core::Logger m_logger{std::make_unique<NullSink>(), "com.quorvane.mdm"};
    std::shared_ptr<Core::ConfigurationManager> m_manager = std::make_shared<Core::ConfigurationManager>(
        Core::ConfigurationManager::Ports{m_logger, m_domains, m_center, m_scheduler.mainQueue,
                                          m_scheduler.utilityQueue, m_scheduler, m_clock, m_outcomes});
    const std::array<Platform::PropertyList, 2> m_configurations;
    std::int64_t m_savedCount = 0;
};

constexpr std::size_t usualAppCount = 5;

/// Runs the measurement on a new device; an exception becomes the result's error.
template <typename Measure>
Figure::Measurement onDevice(std::size_t appCount, Measure measure)
{
    return Figure::catching([appCount, measure](benchmark::State& state) {
        Device device(appCount);
        measure(state, device);
        device.verify();
    });
}

// Loading

void loadOurs(benchmark::State& state, const Device& device)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(device.load());
}

void loadBare(benchmark::State& state, const Device& device)
{
    BareDatabase database(device.suiteFile());
    for (auto _ : state)
        benchmark::DoNotOptimize(boost::json::parse(database.bytes(BareDatabase::snapshotKey)));
}

void loadOursAfterForeignWrite(benchmark::State& state, const Device& device)
{
    BareDatabase foreign(device.suiteFile(), BareDatabase::Durability::lazy);
    const SnapshotRecord record = device.record();
    for (auto _ : state) {
        foreign.write(record);
        Figure::setTimeOf(state, [&] { benchmark::DoNotOptimize(device.load()); });
    }
}

/// Only reads the stored bytes, without decoding them.
void loadSettingsAfterForeignWrite(benchmark::State& state, const Device& device)
{
    const auto file = device.fileBeside("settings.ini");
    SettingsFile settings(file);
    SettingsFile foreign(device.fileBeside("foreign.ini"));
    SnapshotRecord record = device.record();
    for (auto _ : state) {
        // A file of another length: the format detects changes by length and time.
        record.version = record.version == 1 ? 10 : 1;
        foreign.write(record);
        std::filesystem::copy_file(device.fileBeside("foreign.ini"), device.fileBeside("next.ini"));
        std::filesystem::rename(device.fileBeside("next.ini"), file);
        std::size_t size = 0;
        Figure::setTimeOf(state, [&] { size = settings.snapshotSize(); });
        if (size != record.snapshot.size() || settings.version() != record.version)
            throw std::runtime_error("the settings read are not the ones written last");
    }
}

// Saving

void saveOurs(benchmark::State& state, Device& device)
{
    fillLog(device.suiteFile(), device.record());
    device.save();
    for (auto _ : state)
        device.save();
}

/// Writes two snapshots in turn, as `saveOurs()` does: SQLite does not write pages that stay the same.
template <typename Store>
void savePeers(benchmark::State& state, Store& store, Device& device)
{
    std::array<SnapshotRecord, 2> records{device.record(), {}};
    device.save();
    records[1] = device.record();
    store.write(records[0]);
    std::int64_t version = records[1].version;
    for (auto _ : state) {
        SnapshotRecord& record = records[static_cast<std::size_t>(++version % 2)];
        record.version = version;
        store.write(record);
    }
}

void saveBare(benchmark::State& state, Device& device)
{
    const auto file = device.fileBeside("bare.sqlite");
    BareDatabase database(file);
    fillLog(file, device.record());
    savePeers(state, database, device);
}

void saveSettings(benchmark::State& state, Device& device)
{
    SettingsFile settings(device.fileBeside("settings.ini"));
    savePeers(state, settings, device);
}

Figure loadFigure(std::string name, std::size_t appCount, Figure::Budget budget = {})
{
    return {std::move(name),
            onDevice(appCount, loadOurs),
            {{"select and parse", onDevice(appCount, loadBare), budget}}};
}

Figure foreignLoadFigure()
{
    // Each iteration writes a file, which takes far longer than the measured read.
    constexpr std::int64_t iterations = 50;
    return {"snapshot load after a foreign write",
            onDevice(usualAppCount, loadOursAfterForeignWrite),
            {{"QSettings", onDevice(usualAppCount, loadSettingsAfterForeignWrite), {.ratio = 1.0}}},
            Figure::Clock::manual,
            iterations};
}

Figure saveFigure(std::string name, std::size_t appCount, Figure::Budget budget = {})
{
    return {std::move(name),
            onDevice(appCount, saveOurs),
            {{"four-row transaction", onDevice(appCount, saveBare), budget}},
            Figure::Clock::wall};
}

} // namespace

std::vector<Figure> snapshotStoreFigures()
{
    std::vector<Figure> figures{loadFigure("snapshot load", usualAppCount, {.ratio = 1.5}),
                                foreignLoadFigure(),
                                saveFigure("snapshot save", usualAppCount, {.ratio = 1.2})};
    figures.back().peers.push_back({"QSettings", onDevice(usualAppCount, saveSettings)});
    // The part that waiting for the disk hides.
    figures.push_back(saveFigure("snapshot save, processor time", usualAppCount));
    figures.back().clock = Figure::Clock::processor;
    for (const std::size_t appCount : {1, 1'000, 100'000}) {
        figures.push_back(loadFigure(fmt::format("snapshot load, list of {}", appCount), appCount));
        figures.back().smallest = "snapshot load, list of 1";
        figures.push_back(saveFigure(fmt::format("snapshot save, list of {}", appCount), appCount,
                                     appCount > 1 ? Figure::Budget{.ratio = 3.0} : Figure::Budget{}));
        figures.back().clock = Figure::Clock::processor;
        figures.back().smallest = "snapshot save, list of 1";
    }
    return figures;
}
