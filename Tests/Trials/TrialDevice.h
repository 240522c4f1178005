#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Push/ShellState.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Trials/FaultPlan.h"
#include "Tests/Trials/StoreFile.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>

struct StoredState {
    std::optional<Core::ConfigurationSnapshot> snapshot;
    /// 0 before the first update.
    std::int64_t configVersion = 0;
    /// Newest first.
    std::vector<PushNotifications::NotificationPayloadProcessor::Summary> history;
    /// Hexadecimal; empty before the first registration.
    std::string deviceToken;
    bool isAuthorized = false;

    [[nodiscard]] bool hasPush(std::string_view title) const
    {
        return std::any_of(history.begin(), history.end(),
                           [=](const auto& entry) { return entry.title == title; });
    }
};

/// Returns a payload whose alert is in the history before the push is acknowledged. Without
/// "content-available", an alert that arrives before a window is active waits in the shell's store.
inline std::string recordedPush(std::string_view title)
{
    return fmt::format(R"({{"aps": {{"alert": {{"title": "{}"}}, "content-available": 1}}}})", title);
}

/// A device whose user has completed the welcome screen and allowed notifications, so the application
/// registers as soon as it starts.
class TrialDevice : public ThrowawayDevice {
public:
    TrialDevice(const std::filesystem::path& programs, const TestBackend& backend)
        : ThrowawayDevice(programs), m_baseURL(backend.baseURL())
    {
        setEnvironment("SSL_CERT_FILE", backend.certificateAuthority());
        setEnvironment("no_proxy", "*");
        StoreFile(m_paths.standardDefaults())->set("hasLaunchedBefore", true);
        StoreFile shell(m_paths.shellState());
        Platform::Push::ShellState(*shell).setAuthorizationStatus(Platform::AuthorizationStatus::authorized);
    }

    /// Returns a policy that allows `apps`; its `api_key` is "trial-key".
    [[nodiscard]] std::string policy(const std::vector<std::string>& apps) const
    {
        return fmt::format(R"({{"base_domain": "{}", "api_key": "trial-key", "device_id": "DEV-1",
        "AllowedAppsBundleIdsForSSOExtension": "com.example.{}"}})",
                           m_baseURL, fmt::join(apps, ",com.example."));
    }

    /// Reads the stores as a second process. Throws `Violation` unless every database is intact, the four
    /// keys of the suite are from one commit, no store was moved aside, and only the user can access the
    /// files.
    [[nodiscard]] StoredState inspect() const
    {
        namespace Keys = Core::Constants::SnapshotKeys;
        namespace StorageKeys = Core::Constants::StorageKeys;
        const auto suiteFile = m_paths.suite(Core::Constants::appGroupSuiteName);
        requirePrivateFiles();
        // After that, because it may remove the -wal and -shm files.
        for (const auto& file : {m_paths.standardDefaults(), suiteFile, m_paths.shellState()})
            requireIntactDatabase(file);

        StoredState state;
        StoreFile suite(suiteFile, StoreFile::Access::inspect);
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

        StoreFile standard(m_paths.standardDefaults(), StoreFile::Access::inspect);
        constexpr std::int64_t all = 1000;
        state.history = PushNotifications::NotificationPayloadProcessor::payloadSummaries(*standard, all);
        require(state.history.size() <= 100, "the history has {} records", state.history.size());
        require(!state.history.empty() || !standard->data(StorageKeys::processedNotificationPayloads),
                "the history cannot be read");
        state.deviceToken = standard->text(StorageKeys::remoteNotificationDeviceToken).value_or("");
        StoreFile shell(m_paths.shellState(), StoreFile::Access::inspect);
        state.isAuthorized = Platform::Push::ShellState(*shell).authorizationStatus() ==
                             Platform::AuthorizationStatus::authorized;
        return state;
    }

private:
    static void requireIntactDatabase(const std::filesystem::path& file)
    {
        if (!std::filesystem::exists(file))
            return;
        SQLite::Database database(file.string(), SQLite::OPEN_READWRITE, 5000);
        database.exec("PRAGMA synchronous = OFF");
        const std::string verdict = database.execAndGet("PRAGMA integrity_check").getString();
        require(verdict == "ok", "{} is damaged: {}", file.string(), verdict);
    }
    void requirePrivateFiles() const
    {
        using std::filesystem::perms;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_paths.stateFolder)) {
            const std::string path = entry.path().string();
            require(path.find(".corrupt-") == std::string::npos, "{} was moved aside", path);
            require((entry.status().permissions() & (perms::group_all | perms::others_all)) == perms::none,
                    "other users can access {}", path);
        }
    }

    const std::string m_baseURL;
    const Platform::Linux::DevicePaths m_paths{path("data/quorvane-mdm"), {.files = {policyFile()}}};
};

/// Injects faults into programs started on `device` after construction.
class Faults {
public:
    Faults(ThrowawayDevice& device, const std::filesystem::path& library)
    {
        const auto file = device.path("faults");
        device.write(file, std::string(sizeof(FaultPlan), '\0'));
        const Platform::Storage::FileDescriptor descriptor(::open(file.c_str(), O_RDWR | O_CLOEXEC));
        void* memory =
            ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
        require(memory != MAP_FAILED, "cannot map {}", file.string());
        m_plan = new (memory) FaultPlan();
        device.setEnvironment("LD_PRELOAD", library);
        device.setEnvironment(FaultPlan::fileVariable, file);
        device.setEnvironment(FaultPlan::folderVariable, device.path("").string());
    }
    ~Faults() { ::munmap(m_plan, sizeof(FaultPlan)); }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    FaultPlan* operator->() { return m_plan; }

    /// Makes the `number`th of the selected operations, counted from now, the first to fail.
    void arm(std::uint32_t operations, FaultPlan::Kind kind, int error, std::int64_t number)
    {
        m_plan->countdown = 0;
        m_plan->operations = operations;
        m_plan->kind = kind;
        m_plan->error = error;
        m_plan->failedCount = 0;
        m_plan->countdown = number;
    }
    void disarm() { m_plan->countdown = 0; }

private:
    FaultPlan* m_plan = nullptr;
};
