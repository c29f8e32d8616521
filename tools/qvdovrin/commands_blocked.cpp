// Blocked-updates commands: blocked list/add/remove/check/merge.
#include "commands.h"

#include <CLI/CLI.hpp>

namespace qvdovrin {

void registerBlockedCommands(CLI::App &app, Io &io) {
    (void)app;
    (void)io;
}

} // namespace qvdovrin
