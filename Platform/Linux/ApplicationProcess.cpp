#include "Platform/Linux/ApplicationProcess.h"

#include "Platform/ASCII.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/ProcessDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace Platform::Linux {

namespace {

/// Returns the number at the start of `text`, 0 if there is no number.
template <typename Number>
Number leadingNumber(std::string_view text, int base)
{
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

} // namespace

std::optional<ApplicationProcess> ApplicationProcess::open(pid_t identifier)
{
    ApplicationProcess process(identifier, openProcess(identifier));
    if (!process.m_descriptor)
        return std::nullopt;
    bool isApplication = false;
    std::ifstream status("/proc/" + std::to_string(identifier) + "/status");
    for (std::string line; std::getline(status, line);) {
        const std::string_view text = line;
        const auto value = text.substr(std::min(text.find('\t'), text.size() - 1) + 1);
        if (text.starts_with("Name:"))
            isApplication = value == programName;
        else if (text.starts_with("Uid:"))
            process.m_user = leadingNumber<uid_t>(value, 10);
        else if (text.starts_with("SigBlk:"))
            process.m_blockedSignals = leadingNumber<unsigned long long>(value, 16);
    }
    // If the process still runs, the status was its own.
    if (!isApplication || (!sendSignal(process.m_descriptor, 0) && errno == ESRCH))
        return std::nullopt;
    return process;
}

std::vector<ApplicationProcess> ApplicationProcess::all()
{
    std::vector<ApplicationProcess> processes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (!std::all_of(name.begin(), name.end(), isASCIIDigit))
            continue;
        if (auto process = open(leadingNumber<pid_t>(name, 10)))
            processes.push_back(*std::move(process));
    }
    return processes;
}

ApplicationProcess::Outcome ApplicationProcess::send(int signal) const
{
    if ((m_blockedSignals >> (signal - 1) & 1U) == 0)
        return Outcome::unsupported;
    return sendSignal(m_descriptor, signal) ? Outcome::delivered : Outcome::unreachable;
}

} // namespace Platform::Linux
