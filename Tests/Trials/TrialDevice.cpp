#include "Tests/Trials/TrialDevice.h"

#include "Core/Constants.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Push/ShellState.h"
#include "Tests/Trials/StoreFile.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <cmath>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;
namespace Keys = Core::Constants::SnapshotKeys;

namespace {

Platform::Linux::DevicePaths pathsOf(const ThrowawayDevice& device)
{
    return {device.path("data/quorvane-mdm"), {.files = {device.policyFile()}}};
}

void requireIntactDatabase(const fs::path& file)
{
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE, 5000);
    database.exec("PRAGMA synchronous = OFF");
    const std::string verdict = database.execAndGet("PRAGMA integrity_check").getString();
    require(verdict == "ok", "{} is damaged: {}", file.string(), verdict);
}

void requirePrivateFiles(const fs::path& folder)
{
    constexpr auto others = fs::perms::group_all | fs::perms::others_all;
    std::vector<fs::path> databases;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        const std::string path = entry.path().string();
        require(path.find(".corrupt-") == std::string::npos, "{} was moved aside", path);
        require((entry.status().permissions() & others) == fs::perms::none, "other users can access {}",
                path);
        if (path.ends_with(".sqlite"))
            databases.push_back(entry.path());
    }
    // Opened last because that may remove the -wal and -shm files.
    for (const fs::path& database : databases)
        requireIntactDatabase(database);
}

} // namespace

TrialDevice::TrialDevice(const fs::path& programs, const TestBackend& backend)
    : ThrowawayDevice(programs), m_baseURL(backend.baseURL())
{
    setEnvironment("SSL_CERT_FILE", backend.certificateAuthority());
    setEnvironment("no_proxy", "*");
    const auto paths = pathsOf(*this);
    StoreFile(paths.standardDefaults())->set("hasLaunchedBefore", true);
    StoreFile shell(paths.shellState());
    Platform::Push::ShellState(*shell).setAuthorizationStatus(Platform::AuthorizationStatus::authorized);
}

std::string TrialDevice::policy(const std::vector<std::string>& apps) const
{
    return fmt::format(R"({{"base_domain": "{}", "api_key": "trial-key", "device_id": "DEV-1",
        "AllowedAppsBundleIdsForSSOExtension": "com.example.{}"}})",
                       m_baseURL, fmt::join(apps, ",com.example."));
}

StoredState TrialDevice::inspect() const
{
    const auto paths = pathsOf(*this);
    requirePrivateFiles(paths.stateFolder);

    StoredState state;
    StoreFile suite(paths.suite(Core::Constants::appGroupSuiteName), StoreFile::Access::inspect);
    state.configVersion = suite->integer(Keys::configVersion);
    if (const auto stored = suite->data(Keys::configSnapshot)) {
        state.snapshot = Core::ConfigurationSnapshot::decode(*stored);
        const auto lastUpdated = suite->object(Keys::lastUpdated);
        const auto* date = lastUpdated ? lastUpdated->date() : nullptr;
        require(state.snapshot->configVersion == state.configVersion,
                "snapshot of version {} under version {}", state.snapshot->configVersion,
                state.configVersion);
        constexpr double leastSeconds = 1e-5; // Rounding error of a date far from 2001.
        require(date != nullptr &&
                    std::abs(date->secondsSinceReferenceDate -
                             state.snapshot->lastUpdated.secondsSinceReferenceDate) < leastSeconds,
                "the stored time differs from the snapshot's");
        require(suite->integer(Keys::schemaVersion) == state.snapshot->schemaVersion,
                "the stored schema version differs from the snapshot's");
    } else {
        require(state.configVersion == 0, "version {} without a snapshot", state.configVersion);
    }

    StoreFile standard(paths.standardDefaults(), StoreFile::Access::inspect);
    namespace StorageKeys = Core::Constants::StorageKeys;
    constexpr std::int64_t all = 1000;
    state.history = PushNotifications::NotificationPayloadProcessor::payloadSummaries(*standard, all);
    require(state.history.size() <= 100, "the history has {} records", state.history.size());
    require(!state.history.empty() || !standard->data(StorageKeys::processedNotificationPayloads),
            "the history cannot be read");
    state.deviceToken = standard->text(StorageKeys::remoteNotificationDeviceToken).value_or("");
    StoreFile shell(paths.shellState(), StoreFile::Access::inspect);
    state.isAuthorized =
        Platform::Push::ShellState(*shell).authorizationStatus() == Platform::AuthorizationStatus::authorized;
    return state;
}

Faults::Faults(ThrowawayDevice& device, const fs::path& library)
{
    const fs::path file = device.path("faults");
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    void* memory = MAP_FAILED;
    if (descriptor >= 0 && ::ftruncate(descriptor, sizeof(FaultPlan)) == 0)
        memory = ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    const int error = errno;
    ::close(descriptor);
    if (memory == MAP_FAILED)
        throw std::system_error(error, std::generic_category(), file.string());
    m_plan = new (memory) FaultPlan();
    device.setEnvironment("LD_PRELOAD", library);
    device.setEnvironment(FaultPlan::fileVariable, file);
    device.setEnvironment(FaultPlan::folderVariable, device.path("").string());
}

Faults::~Faults()
{
    ::munmap(m_plan, sizeof(FaultPlan));
}

void Faults::arm(std::uint32_t operations, FaultPlan::Kind kind, int error, std::int64_t number)
{
    m_plan->countdown = 0;
    m_plan->operations = operations;
    m_plan->kind = kind;
    m_plan->error = error;
    m_plan->failedCount = 0;
    m_plan->countdown = number;
}
