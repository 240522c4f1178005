#pragma once

#include <functional>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

/// Runs `body` in a child process with new namespaces, CLONE_NEW... flags, and returns its result. Absent if
/// this process may not create them. `body` may start threads only if this process has no other one.
inline std::optional<bool> runIsolated(int namespaces, const std::function<bool()>& body)
{
    constexpr int cannotIsolate = 77;
    const pid_t child = ::fork();
    if (child == 0) {
        // An unprivileged user may create other namespaces inside a new user namespace.
        const bool isIsolated = ::unshare(namespaces) == 0 || ::unshare(CLONE_NEWUSER | namespaces) == 0;
        const bool isPrivate = (namespaces & CLONE_NEWNS) == 0 ||
                               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        ::_exit(!isIsolated || !isPrivate ? cannotIsolate : body() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == cannotIsolate ? std::nullopt
                                                                     : std::optional(status == 0);
}
