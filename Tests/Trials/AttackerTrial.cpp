#include "Platform/Linux/Files/PolicyFragments.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Platform::Linux::Files::PolicyFileReading;
using Platform::Storage::FileDescriptor;

constexpr uid_t victim = 12345;
constexpr uid_t attacker = 12346;

/// A child process that runs as another user, killed by the destructor.
class UserProcess {
public:
    UserProcess(uid_t user, const std::function<void()>& work) : m_process(::fork())
    {
        if (m_process < 0)
            throw std::system_error(errno, std::generic_category(), "fork");
        if (m_process > 0)
            return;
        if (::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0)
            work();
        ::_exit(0);
    }
    ~UserProcess()
    {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    UserProcess(const UserProcess&) = delete;
    UserProcess& operator=(const UserProcess&) = delete;

private:
    pid_t m_process;
};

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

bool contains(const std::vector<PolicyFileReading>& readings, bool (*isWanted)(PolicyFileReading::State))
{
    return std::any_of(readings.begin(), readings.end(),
                       [=](const PolicyFileReading& reading) { return isWanted(reading.state); });
}

struct Figures {
    std::uint64_t readCount = 0;
    /// Reads that found a file.
    std::uint64_t foundCount = 0;
    std::uint64_t acceptedCount = 0;
};

/// Reads the policy repeatedly, like the application.
Figures readFor(const fs::path& file, std::chrono::duration<double> time)
{
    Figures figures;
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
        const auto read = readings(file);
        using State = PolicyFileReading::State;
        ++figures.readCount;
        figures.foundCount += contains(read, [](State state) { return state != State::missing; }) ? 1U : 0U;
        figures.acceptedCount += contains(read, [](State state) { return state == State::good; }) ? 1U : 0U;
    }
    return figures;
}

void writePolicy(const fs::path& file)
{
    constexpr std::string_view policy = R"({"base_domain": "attacker.example"})";
    const FileDescriptor descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    static_cast<void>(::write(descriptor.get(), policy.data(), policy.size()) < 0);
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

/// Never returns.
void repeatAttack(const Attack& attack, const fs::path& shared)
{
    fs::current_path(shared);
    ::mkdir("my", 0755);
    writePolicy(attack.own);
    while (true) {
        [[maybe_unused]] const int made = attack.make(attack.target, attack.place);
        if (attack.make == ::rename)
            ::rename(attack.place, attack.target);
        else
            ::unlink(attack.place);
    }
}

Figures run(const Attack& attack, std::chrono::duration<double> time)
{
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755));
    const fs::path shared = folder.path("shared");
    fs::create_directory(shared);
    fs::permissions(shared, fs::perms(01777));
    fs::create_directories(shared / "open/managed.d");
    fs::permissions(shared / "open/managed.d", fs::perms(01777));
    const UserProcess attacking(attacker, [&] { repeatAttack(attack, shared); });
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const UserProcess attacked(victim, [&] {
        const Figures figures = readFor(shared / attack.policy, time);
        static_cast<void>(::write(writing.get(), &figures, sizeof figures) < 0);
    });
    writing = FileDescriptor();
    Figures figures;
    require(::read(reading.get(), &figures, sizeof figures) == sizeof figures, "the victim exited early");
    return figures;
}

} // namespace

void attackerTrial(double seconds)
{
    if (::geteuid() != 0) {
        fmt::print("Skipped: needs root to run as two users.\n");
        return;
    }
    std::uint64_t acceptedCount = 0;
    for (const Attack& attack : attacks) {
        const Figures figures = run(attack, std::chrono::duration<double>(seconds) / std::size(attacks));
        fmt::print("{:<45} {:>8} reads, {:>7} found it, {:>6} accepted it\n", attack.name, figures.readCount,
                   figures.foundCount, figures.acceptedCount);
        require(figures.foundCount > 0, "the attacker's file was never found");
        acceptedCount += figures.acceptedCount;
    }
    require(acceptedCount == 0, "an attacker's policy was accepted");
}
