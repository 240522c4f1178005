#include "Tools/qvctl/Device.h"

#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Tools/qvctl/InspectedStore.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <exception>
#include <string>

namespace Qvctl {

using namespace Platform::Linux;
using Core::ConfigurationSnapshot;

Device::Device(const Options& options, Access access)
    : paths(DevicePaths::fromEnvironment(options.managedConfiguration)),
      m_adapterLog(m_log, std::string(applicationIdentifier)),
      m_shellStore(paths.shellState(), access, m_clock, m_adapterLog),
      defaults(paths, access, m_clock, m_adapterLog),
      shellState(m_shellStore)
{}

std::optional<ConfigurationSnapshot> Device::storedSnapshot() const
{
    const auto file = paths.suite(Core::Constants::appGroupSuiteName);
    const InspectedStore suite(file);
    const auto bytes = suite.values.data(Core::Constants::SnapshotKeys::configSnapshot);
    if (!suite.problem().empty())
        throw CommandError(unavailable, suite.problem());
    if (!bytes)
        return std::nullopt;
    try {
        return ConfigurationSnapshot::decode(*bytes);
    } catch (const Core::DecodingError& error) {
        throw CommandError(configuration,
                           fmt::format("the snapshot in {} is damaged: {}", file.string(), error.what()));
    }
}

void Device::ConsoleLog::write(const Platform::LogHandle&, Platform::LogType, Platform::LogVisibility,
                               std::string_view line) noexcept
{
    try {
        if (firstProblem.empty())
            firstProblem = line;
        printError("{}", line);
    } catch (const std::exception&) {
        // Out of memory.
    }
}

std::string_view permissionName(Platform::AuthorizationStatus status)
{
    using Platform::AuthorizationStatus;
    switch (status) {
    case AuthorizationStatus::notDetermined:
        return "not asked yet";
    case AuthorizationStatus::denied:
        return "denied";
    case AuthorizationStatus::authorized:
    case AuthorizationStatus::provisional:
    case AuthorizationStatus::ephemeral:
        break;
    }
    return "allowed";
}

} // namespace Qvctl
