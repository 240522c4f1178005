#include "Tools/qvctl/UserSelection.h"

#include "Platform/Error.h"
#include "Platform/Linux/DevicePaths.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/UserAccounts.h"
#include "Tools/qvctl/UserProcesses.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Qvctl {

namespace {

/// The exit code of the process of a user who turns out to have no state. No command uses it.
constexpr auto noState = static_cast<ExitCode>(2);

std::vector<UserAccount> selectedAccounts(const UserSelection& selection)
{
    if (selection.name) {
        UserAccount account = accountNamed(*selection.name, listAccounts());
        if (::geteuid() != 0 && ::geteuid() != account.user)
            throw CommandError(
                unavailable,
                fmt::format("only root can read the state of {}; run this command with sudo", account.name));
        return {std::move(account)};
    }
    if (::geteuid() != 0)
        throw CommandError(unavailable,
                           "only root can read the state of all users; run this command with sudo");
    return accountsWithState(listAccounts());
}

/// The processes of the users start in another folder and with another environment.
Options optionsForUsers(Options options)
{
    options.isOtherUser = true;
    const char* variable = std::getenv("QUORVANE_MANAGED_CONFIGURATION");
    if (!options.managedConfiguration && variable != nullptr && *variable != '\0')
        options.managedConfiguration = variable;
    // Reports an invalid path once instead of once for each user.
    Platform::Linux::DevicePaths::policyPlaces(options.managedConfiguration);
    if (options.managedConfiguration)
        options.managedConfiguration = std::filesystem::absolute(*options.managedConfiguration).string();
    return options;
}

/// Runs in the process of the user, which may have access to a home that root has not.
ExitCode runForUser(const UserAccount& account, bool isOptional, const Options& options,
                    const std::function<ExitCode(const Options&)>& command)
{
    setSubject(account.name);
    const auto folder = account.stateFolder();
    struct stat status {};
    const int error = ::stat(folder.c_str(), &status) == 0 ? 0 : errno;
    if (isOptional && (error == ENOENT || error == ENOTDIR))
        return noState;
    if (error != 0 && error != ENOENT)
        return fail(options, unavailable,
                    fmt::format("cannot access {}: {}", folder.string(), Platform::errorText(error)));
    if (error == 0 && !S_ISDIR(status.st_mode))
        return fail(options, unavailable, fmt::format("{} is not a folder", folder.string()));
    return command(options);
}

/// Prints what the processes of the users printed.
class Report {
public:
    Report(const Options& options, bool isTitled) : m_options(options), m_isTitled(isTitled) {}

    void add(const UserAccount& account, const UserOutcome& outcome)
    {
        if (outcome.exitCode == noState)
            return;
        m_worst =
            std::max(m_worst, outcome.exitCode ? static_cast<ExitCode>(*outcome.exitCode) : unavailable);
        if (m_isTitled && !m_options.isJSON)
            writeOutput((m_count == 0 ? "" : "\n") +
                        styled("{} (user {})\n", account.name, account.user).text);
        ++m_count;
        // An unfinished process may have left half a line.
        if (!outcome.exitCode) {
            setSubject(account.name);
            fail(m_options, unavailable, fmt::format("the process for this user {}", outcome.failure));
            setSubject({});
            return;
        }
        writeOutput(outcome.output); // The command has escaped it.
        flushOutput();
        writeDiagnostics(outcome.diagnostics);
    }

    [[nodiscard]] std::size_t count() const { return m_count; }
    [[nodiscard]] ExitCode worst() const { return m_worst; }

private:
    const Options& m_options;
    bool m_isTitled;
    std::size_t m_count = 0;
    ExitCode m_worst = success;
};

bool isRootWithoutState()
{
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (::geteuid() != 0 || (dataHome != nullptr && *dataHome != '\0'))
        return false;
    try {
        std::error_code ignored;
        return !std::filesystem::exists(
            Platform::Linux::DevicePaths::fromEnvironment(std::nullopt).stateFolder, ignored);
    } catch (const std::exception&) {
        return true; // Without a home.
    }
}

void suggestUsers()
{
    constexpr std::size_t maximumNamedCount = 10;
    const auto accounts = accountsWithState(listAccounts());
    if (accounts.empty())
        return;
    std::string names;
    for (std::size_t index = 0; index < std::min(accounts.size(), maximumNamedCount); ++index)
        names += (index == 0 ? "" : ", ") + accounts[index].name;
    if (accounts.size() > maximumNamedCount)
        names += fmt::format(" and {} more", accounts.size() - maximumNamedCount);
    printError("root has no state of its own. To see that of other users, add --user NAME or --all-users; "
               "users with a state: {}",
               names);
}

} // namespace

ExitCode runForSelection(const Options& options, const UserSelection& selection,
                         std::chrono::milliseconds timeLimit,
                         const std::function<ExitCode(const Options&)>& command)
{
    if (!selection.isGiven()) {
        const bool isSuggesting = isRootWithoutState();
        const ExitCode code = command(options);
        flushOutput();
        if (isSuggesting)
            suggestUsers();
        return code;
    }
    const auto accounts = selectedAccounts(selection);
    const Options forUsers = optionsForUsers(options);
    prepareColor(); // The processes of the users print to pipes.
    Report report(options, selection.isAllUsers);
    runForUsers(
        accounts, timeLimit,
        [&](const UserAccount& account) {
            return runForUser(account, selection.isAllUsers, forUsers, command);
        },
        [&](const UserAccount& account, const UserOutcome& outcome) { report.add(account, outcome); });
    if (report.count() == 0)
        return fail(options, noInput, "no user has a state folder: the app has not run on this device yet");
    return report.worst();
}

} // namespace Qvctl
