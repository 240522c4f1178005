#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Qvctl {

/// An account of the user database, see passwd(5).
struct UserAccount {
    std::string name;
    uid_t user = 0;
    gid_t group = 0;
    std::filesystem::path home = {};

    /// Where the app of this user stores its state unless the user sets XDG_DATA_HOME.
    [[nodiscard]] std::filesystem::path stateFolder() const;
};

/// Returns the name of the user, or the ID if the database has none.
std::string userName(uid_t user);

/// Returns all accounts that the database lists.
std::vector<UserAccount> listAccounts();

/// Returns the accounts that have a state folder, ordered by user ID, only one for each ID. Includes those
/// whose home this process cannot look into, for example because it is on a network file system.
std::vector<UserAccount> accountsWithState(std::vector<UserAccount> accounts);

/// Returns the account with that name, even if the database does not list it. Throws `CommandError`, with a
/// similar name of `accounts` if there is one.
UserAccount accountNamed(const std::string& name, const std::vector<UserAccount>& accounts);

} // namespace Qvctl
