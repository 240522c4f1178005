#include "Tools/qvctl/Device.h"

#include "Core/Constants.h"
#include "Tools/qvctl/Output.h"

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

std::optional<ConfigurationSnapshot> Device::storedSnapshot()
{
    const auto* suite = defaults.suite(Core::Constants::appGroupSuiteName);
    const auto bytes =
        suite != nullptr ? suite->data(Core::Constants::SnapshotKeys::configSnapshot) : std::nullopt;
    return bytes ? std::optional(ConfigurationSnapshot::decode(*bytes)) : std::nullopt;
}

void Device::ConsoleLog::write(const Platform::LogHandle&, Platform::LogType, Platform::LogVisibility,
                               std::string_view line) noexcept
{
    try {
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
