// Service commands: serve, versions, lookup, report.
#include "commands.h"

#include <CLI/CLI.hpp>

namespace qvdovrin {

void registerServiceCommands(CLI::App &app, Io &io) {
    (void)app;
    (void)io;
}

} // namespace qvdovrin
