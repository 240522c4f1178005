#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

/// Runs `work` while this process cannot open files.
inline void withoutDescriptors(const std::function<void()>& work)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{.rlim_cur = 3, .rlim_max = limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    work();
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// Moves this process into new namespaces, CLONE_NEW... flags. Returns false if it may not create them. Call
/// it before starting another thread.
inline bool isolate(int namespaces)
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(namespaces) != 0) {
        // An unprivileged user may create other namespaces inside a new user namespace, but no files in them
        // unless both IDs are mapped.
        if (::unshare(CLONE_NEWUSER | namespaces) != 0)
            return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
        std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
    }
    return (namespaces & CLONE_NEWNS) == 0 ||
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Gives this process, whose mounts must be its own, an empty /run, and listens there in place of the
/// journal. Returns the socket, or -1.
inline int listenAsJournal()
{
    if (::mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0)
        return -1;
    std::filesystem::create_directories("/run/systemd/journal");
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    return ::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? receiver : -1;
}

/// Runs `body` in a child process with new namespaces and returns its result. Absent if this process may not
/// create them. `body` may start threads only if this process has no other one.
inline std::optional<bool> runIsolated(int namespaces, const std::function<bool()>& body)
{
    constexpr int cannotIsolate = 77;
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(!isolate(namespaces) ? cannotIsolate : body() ? 0 : 1);
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == cannotIsolate ? std::nullopt
                                                                     : std::optional(status == 0);
}
