// The command groups of qvdovrin and what they share: streams, the bad-input error and exit codes.
#pragma once

#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/result.h"

namespace CLI {
class App;
}

namespace qvdovrin {

// Exit codes of every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitBadInput = 1;
inline constexpr int kExitBadUsage = 2;

// Thrown by a command for input it cannot use; the message becomes the one line on stderr and the exit code 1.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Thrown by a command that has already written all it has to say and only sets the exit code.
class ExitWithoutMessage : public std::exception {
  public:
    explicit ExitWithoutMessage(int exitCode) : exitCode_(exitCode) {}
    int exitCode() const { return exitCode_; }
    const char *what() const noexcept override { return "exit without message"; }

  private:
    int exitCode_;
};

// The value of a successful result; a failure becomes BadInput with the failure's one line.
template <class T> T valueOrBadInput(qv::Result<T> result) {
    if (!result) {
        throw BadInput(result.error().describe());
    }
    return std::move(result).value();
}

struct Io {
    std::ostream &out;
    std::ostream &err;
    // Only the interactive commands read it.
    std::istream &in = std::cin;
};

// Each group adds its subcommands to the app; handlers write to io and throw BadInput for bad input.
void registerCoreCommands(CLI::App &app, Io &io);     // compare, state, buyparams
void registerBlockedCommands(CLI::App &app, Io &io);  // blocked
void registerServiceCommands(CLI::App &app, Io &io);  // serve, versions, lookup, report
void registerHooksCommand(CLI::App &app, Io &io);     // hooks
void registerDowngradeCommand(CLI::App &app, Io &io); // downgrade
void registerSettingsCommand(CLI::App &app, Io &io);  // settings
void registerImportCommand(CLI::App &app, Io &io);    // import

// Parses and runs one command line; returns the process exit code. Never throws.
int run(int argc, const char *const *argv, Io &io);

} // namespace qvdovrin
