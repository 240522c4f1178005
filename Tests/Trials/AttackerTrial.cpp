#include "Platform/Linux/Files/PolicyFragments.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/Trials.h"

#include <cerrno>
#include <future>
#include <sched.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Platform::Linux::Files::PolicyFileReading;
using namespace std::chrono_literals;

constexpr uid_t victim = 12345;
constexpr uid_t attacker = 12346;

/// Makes this thread run as another user. setuid(3) would change all threads.
void becomeUser(uid_t user)
{
    if (::syscall(SYS_setgroups, 0, nullptr) != 0 || ::syscall(SYS_setresgid, user, user, user) != 0 ||
        ::syscall(SYS_setresuid, user, user, user) != 0)
        throw std::system_error(errno, std::generic_category(), "becoming another user");
}

/// The name of a folder of fragments.
constexpr const char* fragments = "managed.d";

/// Reads the policy file, or the fragments, as the application does.
std::vector<PolicyFileReading> readings(const fs::path& path)
{
    if (path.filename() != fragments)
        return {readPolicyFile(path, Platform::Linux::Files::TrustCheck::required)};
    auto [folder, files] = Platform::Linux::Files::readFragments(path);
    if (folder.state != PolicyFileReading::State::good)
        files.push_back(folder);
    return files;
}

/// An attack in a folder where all users can create files, such as /tmp: makes an own file or folder appear
/// at a path and disappear again, all the time.
struct Attack {
    const char* name;
    /// The policy path, relative to the shared folder, as are the other paths.
    const char* policy;
    /// The attacker's own policy file.
    const char* own;
    /// How `target` appears at `place`: by link(2), rename(2) or symlink(2).
    int (*make)(const char* target, const char* place) noexcept;
    const char* target;
    const char* place;
};

const Attack attacks[] = {
    {"file linked and unlinked", "managed.json", "mine", ::link, "mine", "managed.json"},
    {"file renamed", "managed.json", "mine", ::rename, "mine", "managed.json"},
    {"folder renamed", "policy/managed.json", "my/managed.json", ::rename, "my", "policy"},
    {"link to a file created and removed", "managed.json", "my/managed.json", ::symlink, "my/managed.json",
     "managed.json"},
    {"link to a folder created and removed", "policy/managed.json", "my/managed.json", ::symlink, "my",
     "policy"},
    {"folder of fragments renamed", fragments, "my/x.json", ::rename, "my", fragments},
    {"link to a folder of fragments", fragments, "my/x.json", ::symlink, "my", fragments},
    {"fragment in an open folder", "open/managed.d", "mine", ::link, "mine", "open/managed.d/x.json"},
};

/// Repeats the attack until the thread is stopped.
void repeatAttack(const Attack& attack, const fs::path& shared, const std::stop_token& isStopping)
{
    ::unshare(CLONE_FS); // The other threads keep their current folder.
    becomeUser(attacker);
    fs::current_path(shared);
    fs::create_directory("my");
    std::ofstream(attack.own) << R"({"base_domain": "attacker.example"})";
    while (!isStopping.stop_requested()) {
        [[maybe_unused]] const int made = attack.make(attack.target, attack.place);
        if (attack.make == ::rename)
            ::rename(attack.place, attack.target);
        else
            ::unlink(attack.place);
    }
}

/// Lets the victim read the policy repeatedly, like the application, during the attack: for `time`, and on a
/// busy machine until it has found a policy. Returns the number of policies that were accepted.
std::uint64_t acceptedCount(const Attack& attack, std::chrono::duration<double> time)
{
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755));
    const fs::path shared = folder.path("shared");
    fs::create_directories(shared / "open/managed.d");
    for (const fs::path& open : {shared, shared / "open/managed.d"})
        fs::permissions(open, fs::perms(01777));
    std::uint64_t readCount = 0;
    std::uint64_t foundCount = 0;
    std::uint64_t acceptedCount = 0;
    const std::jthread attacking(
        [&](const std::stop_token& isStopping) { repeatAttack(attack, shared, isStopping); });
    const auto end = std::chrono::steady_clock::now() + time;
    std::async(std::launch::async, [&] {
        becomeUser(victim);
        const auto isOngoing = [&](auto now) { return now < end || (foundCount == 0 && now < end + 30s); };
        for (; isOngoing(std::chrono::steady_clock::now()); ++readCount) {
            for (const PolicyFileReading& reading : readings(shared / attack.policy)) {
                foundCount += reading.state != PolicyFileReading::State::missing ? 1U : 0U;
                acceptedCount += reading.state == PolicyFileReading::State::good ? 1U : 0U;
            }
        }
    }).get();
    fmt::print("{:<45} {:>8} reads, {:>7} found it, {:>6} accepted it\n", attack.name, readCount, foundCount,
               acceptedCount);
    require(foundCount > 0, "the attacker's file was never found");
    return acceptedCount;
}

} // namespace

void attackerTrial(double seconds)
{
    if (::geteuid() != 0) {
        fmt::print("Skipped: needs root to run as two users.\n");
        return;
    }
    std::uint64_t total = 0;
    for (const Attack& attack : attacks)
        total += acceptedCount(attack, std::chrono::duration<double>(seconds) / std::size(attacks));
    require(total == 0, "an attacker's policy was accepted");
}
