// Runs a test body in a child process that file permissions apply to: as root it first becomes nobody, because
// root writes through any mode bits and a read-only file would prove nothing.
#pragma once

#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

namespace qv::test {

struct ChildOutcome {
    int exitCode = -1;
    std::string output; // stdout and stderr together
};

inline constexpr uid_t kNobody = 65534;

// `ownedFolder` (and what is in it) is handed to the unprivileged user first, so the child may create files there.
inline ChildOutcome runUnprivileged(const std::string &ownedFolder, const std::function<int()> &body) {
    const bool root = ::geteuid() == 0;
    if (root) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(ownedFolder)) {
            (void)::chown(entry.path().c_str(), kNobody, kNobody);
        }
        (void)::chown(ownedFolder.c_str(), kNobody, kNobody);
    }
    int pipeEnds[2] = {-1, -1};
    if (::pipe(pipeEnds) != 0) {
        return {};
    }
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pipeEnds[1], STDOUT_FILENO);
        ::dup2(pipeEnds[1], STDERR_FILENO);
        ::close(pipeEnds[0]);
        ::close(pipeEnds[1]);
        if (root && (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) {
            ::_exit(127);
        }
        const int code = body();
        std::fflush(nullptr);
        ::_exit(code);
    }
    ::close(pipeEnds[1]);
    ChildOutcome outcome;
    char buffer[512];
    ssize_t got = 0;
    while ((got = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0) {
        outcome.output.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(pipeEnds[0]);
    int status = 0;
    if (child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        outcome.exitCode = WEXITSTATUS(status);
    }
    return outcome;
}

} // namespace qv::test
