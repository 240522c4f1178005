#include "Benchmarks/AllocationMeter.h"
#include "Benchmarks/BareStores.h"
#include "Benchmarks/Figures.h"
#include "Benchmarks/NullSink.h"
#include "Core/Constants.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/NotificationCenter.h"
#include "Platform/SystemClock.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace {

using Platform::Linux::DeviceDefaults;

constexpr std::string_view historyKey = Core::Constants::StorageKeys::processedNotificationPayloads;
constexpr std::size_t greatestCount = 100;

/// A device with a given number of notifications in its history.
class HistoryDevice {
public:
    explicit HistoryDevice(std::size_t count) : m_count(count)
    {
        // Dates of the same length.
        m_scheduler.advance(std::chrono::hours(250'000));
        for (std::size_t i = 0; i < count; ++i)
            add();
        m_history = stored();
        add();
        m_nextHistory = stored();
        fillLog(m_paths.standardDefaults(), {.snapshot = m_history});
        restore();
    }
    /// Throws if the history is not the expected one, or if an adapter logged a problem: such a measurement
    /// is worthless.
    void verify()
    {
        restore();
        add();
        if (read().size() != std::min(m_count + 1, greatestCount) || stored().size() != m_nextHistory.size())
            throw std::runtime_error("the history is not the one expected");
        if (const auto lines = m_log.takeLines(); !lines.empty())
            throw std::runtime_error(lines.front());
    }

    void add()
    {
        m_scheduler.advance(std::chrono::seconds(1));
        m_processor.processRemoteNotification(m_payload, [](Platform::BackgroundFetchResult, bool) {});
        m_scheduler.runUntilIdle();
    }
    [[nodiscard]] std::vector<PushNotifications::NotificationPayloadProcessor::Summary> read() const
    {
        return m_processor.recentPayloadSummaries(greatestCount);
    }
    /// Restores the history that the device started with.
    void restore()
    {
        if (m_count == 0)
            m_foreign.remove(historyKey);
        else
            m_foreign.write(historyKey, m_history);
    }

    [[nodiscard]] BareDatabase openBare() const { return BareDatabase(m_paths.standardDefaults()); }
    /// The stored history after the next notification.
    [[nodiscard]] const std::string& nextHistory() const { return m_nextHistory; }

private:
    std::string stored()
    {
        const auto bytes = m_defaults.standard().data(historyKey);
        return bytes ? std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size())
                     : std::string();
    }
    [[nodiscard]] std::filesystem::path openedFile()
    {
        static_cast<void>(stored());
        return m_paths.standardDefaults();
    }

    const std::size_t m_count;
    TemporaryFolder m_folder;
    Platform::Linux::DevicePaths m_paths{m_folder.path("state"),
                                         {.files = {m_folder.path("policy/managed.json")}}};
    Platform::SystemClock m_clock;
    RecordingUnifiedLog m_log;
    Platform::AdapterLog m_adapterLog{m_log, "com.quorvane.mdm"};
    DeviceDefaults m_defaults{m_paths, Platform::Storage::SQLiteUserDefaults::Access::readWrite, m_clock,
                              m_adapterLog};
    BareDatabase m_foreign{openedFile(), BareDatabase::Durability::lazy};
    ManualScheduler m_scheduler;
    Platform::NotificationCenter m_center;
    Core::Logger m_logger{std::make_unique<NullSink>(), "com.quorvane.mdm"};
    PushNotifications::NotificationPayloadProcessor m_processor{
        {m_logger, m_defaults, m_center, m_scheduler.mainQueue, m_scheduler}};
    const Platform::PropertyList::Dictionary m_payload{
        {"aps",
         Platform::PropertyList::Dictionary{
             {"alert",
              Platform::PropertyList::Dictionary{
                  {"title", "Configuration changed"},
                  {"body", "Your organization has changed the settings of this device."}}},
             {"content-available", 1}}},
        {"ticket", "0123456789abcdef"},
    };
    std::string m_history;
    std::string m_nextHistory;
};

template <typename Measure>
Figure::Measurement onHistory(std::size_t count, Measure measure)
{
    return Figure::catching([count, measure](benchmark::State& state) {
        HistoryDevice device(count);
        measure(state, device);
        device.verify();
    });
}

void addOurs(benchmark::State& state, HistoryDevice& device)
{
    for (auto _ : state) {
        device.restore();
        Figure::setTimeOf(state, [&] { device.add(); });
    }
}

void addBare(benchmark::State& state, HistoryDevice& device)
{
    BareDatabase database = device.openBare();
    for (auto _ : state) {
        device.restore();
        Figure::setTimeOf(state, [&] { database.write(historyKey, device.nextHistory()); });
    }
}

void readOurs(benchmark::State& state, const HistoryDevice& device)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(device.read());
}

void readBare(benchmark::State& state, const HistoryDevice& device)
{
    BareDatabase database = device.openBare();
    for (auto _ : state) {
        if (const std::string_view bytes = database.bytes(historyKey); !bytes.empty())
            benchmark::DoNotOptimize(boost::json::parse(bytes));
    }
}

void memoryOurs(benchmark::State& state, HistoryDevice& device)
{
    for (auto _ : state) {
        device.restore();
        const AllocationMeter meter;
        device.add();
        Figure::setAmount(state, static_cast<double>(meter.peakBytes()));
    }
}

void storedBytes(benchmark::State& state, const HistoryDevice& device)
{
    for (auto _ : state)
        Figure::setAmount(state, static_cast<double>(device.nextHistory().size()));
}

} // namespace

std::vector<Figure> notificationHistoryFigures()
{
    constexpr std::int64_t iterations = 30; // Each of them writes more than what is measured.
    std::vector<Figure> figures;
    for (const std::size_t count : {std::size_t{0}, std::size_t{10}, greatestCount}) {
        const auto add = [&](std::string_view name, Figure figure) {
            figure.name = fmt::format("{}, history of {}", name, count);
            figure.smallest = fmt::format("{}, history of 0", name);
            figures.push_back(std::move(figure));
        };
        add("notification added", {{},
                                   onHistory(count, addOurs),
                                   {{"one-row transaction", onHistory(count, addBare)}},
                                   Figure::Clock::manual,
                                   iterations});
        add("notifications read",
            {{}, onHistory(count, readOurs), {{"select and parse", onHistory(count, readBare)}}});
        add("memory for adding", {{},
                                  onHistory(count, memoryOurs),
                                  {{"stored bytes", onHistory(count, storedBytes)}},
                                  Figure::Clock::manual,
                                  1,
                                  Figure::Quantity::bytes,
                                  3});
    }
    return figures;
}
