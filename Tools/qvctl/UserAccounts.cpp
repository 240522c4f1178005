#include "Tools/qvctl/UserAccounts.h"

#include "Platform/Linux/DevicePaths.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Spelling.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>

namespace Qvctl {

namespace {

UserAccount accountFrom(const passwd& entry)
{
    return {entry.pw_name, entry.pw_uid, entry.pw_gid, entry.pw_dir};
}

bool mayHaveState(const UserAccount& account)
{
    struct stat status {};
    return account.home.is_absolute() &&
           (::stat(account.stateFolder().c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR));
}

} // namespace

std::filesystem::path UserAccount::stateFolder() const
{
    return Platform::Linux::DevicePaths::defaultStateFolder(home);
}

std::string userName(uid_t user)
{
    const passwd* entry = ::getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::vector<UserAccount> listAccounts()
{
    std::vector<UserAccount> accounts;
    ::setpwent();
    while (const passwd* entry = ::getpwent())
        accounts.push_back(accountFrom(*entry));
    ::endpwent();
    return accounts;
}

std::vector<UserAccount> accountsWithState(std::vector<UserAccount> accounts)
{
    std::erase_if(accounts, [](const UserAccount& account) { return !mayHaveState(account); });
    std::stable_sort(accounts.begin(), accounts.end(), [](const UserAccount& left, const UserAccount& right) {
        return left.user < right.user;
    });
    const auto end =
        std::unique(accounts.begin(), accounts.end(), [](const UserAccount& left, const UserAccount& right) {
            return left.user == right.user;
        });
    accounts.erase(end, accounts.end());
    return accounts;
}

UserAccount accountNamed(const std::string& name, const std::vector<UserAccount>& accounts)
{
    const auto listed = std::find_if(accounts.begin(), accounts.end(),
                                     [&](const UserAccount& account) { return account.name == name; });
    if (listed != accounts.end())
        return *listed;
    if (const passwd* entry = ::getpwnam(name.c_str()))
        return accountFrom(*entry);
    std::vector<std::string_view> names;
    for (const UserAccount& account : accounts)
        names.emplace_back(account.name);
    const auto closest = closestWord(name, names);
    throw CommandError(usage,
                       fmt::format("there is no user '{}'{}", name,
                                   closest ? fmt::format(". Did you mean '{}'?", names[*closest]) : ""));
}

} // namespace Qvctl
