#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Storage/FileDescriptor.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/OwnState.h"
#include "Tools/qvctl/TimeText.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace Qvctl {

namespace {

namespace json = boost::json;
using namespace Platform::Push;
using namespace Platform::Storage;
using namespace Platform::Linux;
using PushNotifications::NotificationPayloadProcessor;

/// Reads the file up to one byte more than a payload may have. Throws `std::system_error`.
std::string readPayload(const std::string& file)
{
    const FileDescriptor opened(file == "-" ? ::dup(STDIN_FILENO)
                                            : ::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened)
        throw std::system_error(errno, std::generic_category(), file);
    std::string bytes(maximumPayloadSize + 1, '\0');
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count = ::read(opened.get(), bytes.data() + size, bytes.size() - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw std::system_error(errno, std::generic_category(), file);
        if (count == 0)
            break;
        size += static_cast<std::size_t>(count);
    }
    bytes.resize(size);
    return bytes;
}

/// Why the app does not accept payloads.
std::string unavailableReason(const DevicePaths& paths, const std::system_error& error)
{
    const auto holder = InstanceLock::holder(paths.instanceLock());
    if (!holder || !holder->isApplication())
        return "the app is not running; start it with --push local";
    return fmt::format("the app does not accept local pushes; start it with --push local ({})", error.what());
}

/// Masks the content of a notification unless --reveal is given.
std::optional<std::string> maskedText(const Options& options, const std::optional<std::string>& text)
{
    return text && !options.isRevealing ? std::optional<std::string>(mask) : text;
}

json::value jsonText(const std::optional<std::string>& text)
{
    return text ? json::value(*text) : json::value();
}

} // namespace

ExitCode notifications(const Options& options, std::int64_t limit)
{
    Device device(options, Device::Access::inspect);
    const auto summaries = NotificationPayloadProcessor::payloadSummaries(device.defaults.standard(), limit);
    const std::string& problem = device.firstProblem(); // Already printed.
    const ExitCode exitCode = problem.empty() ? success : unavailable;
    if (options.isJSON) {
        json::array list;
        for (const auto& summary : summaries)
            list.push_back({{"date", summary.date.utcText()},
                            {"title", jsonText(maskedText(options, summary.title))},
                            {"body", jsonText(maskedText(options, summary.body))}});
        json::object object{{"notifications", std::move(list)}};
        if (!problem.empty())
            object["error"] = problem;
        printJSON(std::move(object));
        return exitCode;
    }
    if (summaries.empty() && problem.empty())
        print("No notifications\n");
    for (const auto& summary : summaries) {
        const auto title = maskedText(options, summary.title);
        const auto body = maskedText(options, summary.body);
        print("{:<10}  {}{}\n", relativeTime(summary.date, Platform::SystemClock().now()),
              title ? styled("{}", *title) : toned(Tone::faint, "(no title)"),
              body ? styled("  {}", toned(Tone::faint, *body)) : Styled());
    }
    return exitCode;
}

ExitCode push(const Options& options, const std::string& file)
{
    std::string payload;
    try {
        payload = readPayload(file);
    } catch (const std::system_error& error) {
        return fail(options, noInput, error.what());
    }
    const auto paths = DevicePaths::fromEnvironment(options.managedConfiguration);
    std::string answer;
    try {
        answer = sendToLocalPushService(paths.pushSocket, payload);
    } catch (const std::system_error& error) {
        answer = "error: " + unavailableReason(paths, error);
    } catch (const std::runtime_error& error) {
        answer = std::string("error: ") + error.what();
    }
    const bool isDelivered = answer == "ok";
    if (options.isJSON)
        printJSON({{"isDelivered", isDelivered}, {"answer", answer}});
    else if (isDelivered)
        print("Delivered\n");
    if (!isDelivered)
        printError("not delivered: {}", answer.starts_with("error: ") ? answer.substr(7) : answer);
    return isDelivered ? success : unavailable;
}

ExitCode setNotificationPermission(const Options& options, Platform::AuthorizationStatus status)
{
    const std::string user = requireOwnState(DevicePaths::fromEnvironment(options.managedConfiguration));
    Device device(options, Device::Access::readWrite);
    // The store prints why it cannot be written.
    const bool isSet = device.shellState.setAuthorizationStatus(status);
    const auto name = permissionName(device.shellState.authorizationStatus());
    if (options.isJSON) {
        json::object object{{"user", user}, {"notificationPermission", name}};
        if (!isSet)
            object["error"] = device.firstProblem();
        printJSON(std::move(object));
    } else if (isSet) {
        print("Notifications for {}: {}\n", user, name);
    }
    return isSet ? success : unavailable;
}

} // namespace Qvctl
