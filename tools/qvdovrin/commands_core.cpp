// Core commands: compare, state, buyparams.
#include "commands.h"

#include <CLI/CLI.hpp>

namespace qvdovrin {

void registerCoreCommands(CLI::App &app, Io &io) {
    (void)app;
    (void)io;
}

} // namespace qvdovrin
