// Checks the last upload of the device token in the app's record of its requests.

#include "Platform/Network/ExchangeRecord.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/LastOutcomes.h"
#include "Tools/qvctl/RequestRehearsal.h"

#include <fmt/format.h>

namespace Qvctl::Doctor {

namespace {

using namespace Platform::Network;

constexpr const char* uploadCheck = "upload.last";

void reportFailure(CheckReport& report, const ExchangeRecord& upload)
{
    const std::string found =
        upload.statusCode != 0
            ? fmt::format("The upload on {} failed with status {}", timeText(upload.time), upload.statusCode)
            : fmt::format("The upload on {} failed: {}", timeText(upload.time),
                          networkErrorClause(upload.errorCode));
    if (!report.isPrevented(uploadCheck,
                            {"backend.address", "backend.connect", "backend.tls", "backend.certificate",
                             "backend.name", "backend.dates"},
                            found))
        report.failed(uploadCheck, found + ".",
                      "Restart the app to try again. Its log has the details: qvctl log");
}

void reportNoRequest(Examination& examination, const std::string& server)
{
    if (examination.pushService)
        examination.report.warning(uploadCheck,
                                   fmt::format("The app has not sent the device token to {} yet.", server),
                                   "Restart the app; it uploads the token on each launch.");
    else
        examination.report.skipped(
            uploadCheck,
            "The app has not recorded any requests; if an older version is running, restart it.");
}

void checkExchange(Examination& examination, const SecureURL& target)
{
    CheckReport& report = examination.report;
    const InspectedStore shell(examination.paths->shellState());
    const auto exchanges = storedExchanges(shell.values);
    const auto found = exchanges.find(target.endpoint());
    if (!shell.problem().empty()) {
        report.skipped(uploadCheck, shell.problem() + ".");
    } else if (found == exchanges.end()) {
        reportNoRequest(examination, target.endpoint());
    } else if (const ExchangeRecord& last = found->second; !isUpload(last, target.url)) {
        report.skipped(uploadCheck,
                       fmt::format("The last request to {}, on {}, was not an upload of the device token.",
                                   target.endpoint(), timeText(last.time)));
    } else if (last.isSuccess()) {
        report.ok(uploadCheck,
                  fmt::format("The backend accepted the device token on {}.", timeText(last.time)));
    } else {
        reportFailure(report, last);
    }
}

} // namespace

void examineUpload(Examination& examination)
{
    CheckReport& report = examination.report;
    if (report.isPrevented(uploadCheck, {"state.folder", "push.registration", "suite.readable"}))
        return;
    if (!examination.snapshot || !examination.snapshot->config.baseDomain) {
        report.skipped(uploadCheck, "No token is uploaded because no backend is configured.");
        return;
    }
    const auto& config = examination.snapshot->config;
    if (!config.deviceId) {
        if (!report.isPrevented(uploadCheck, {"policy.values"},
                                "No token is uploaded because device_id is not set"))
            report.warning(uploadCheck, "No token is uploaded because device_id is not set.",
                           "Set device_id in the policy file.");
    } else if (const auto target = uploadAddress(config)) {
        checkExchange(examination, *target);
    } else {
        report.skipped(uploadCheck, "The stored configuration does not allow an upload.");
    }
}

} // namespace Qvctl::Doctor
