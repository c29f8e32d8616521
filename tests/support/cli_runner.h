// Runs qvdovrin for a test: in-process through its entry point, or as the built binary through a shell.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"

namespace qv::test {

struct CliOutcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// The arguments follow the program name, as on a command line; `in` is what the user types.
inline CliOutcome runInProcess(const std::vector<std::string> &arguments, std::istream &in) {
    std::vector<const char *> argv{"qvdovrin"};
    for (const std::string &argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    qvdovrin::Io io{out, err, in};
    const int code = qvdovrin::run(static_cast<int>(argv.size()), argv.data(), io);
    return {code, out.str(), err.str()};
}

inline CliOutcome runInProcess(const std::vector<std::string> &arguments, const std::string &input = {}) {
    std::istringstream in(input);
    return runInProcess(arguments, in);
}

// The built binary, run by the shell with `arguments` as written; out holds stdout and stderr together.
inline CliOutcome runBinary(const std::string &arguments) {
    CliOutcome run;
    const std::string command = std::string(QV_CLI_PATH) + " " + arguments + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    char buffer[4096];
    std::size_t read = 0;
    while ((read = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        run.out.append(buffer, read);
    }
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace qv::test
