// Builds the qvdovrin command tree and turns every outcome into an exit code and at most one error line.
#include "commands.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <ostream>

namespace qvdovrin {

int run(int argc, const char *const *argv, Io &io) {
    CLI::App app{"qvdovrin: Verdigo's command-line tool for buy parameters, versions, blocked updates and the "
                 "version service"};
    app.name("qvdovrin");
    app.require_subcommand(1);
    app.fallthrough(false);
    registerCoreCommands(app, io);
    registerBlockedCommands(app, io);
    registerServiceCommands(app, io);
    registerHooksCommand(app, io);
    registerDowngradeCommand(app, io);
    registerSettingsCommand(app, io);
    registerImportCommand(app, io);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        io.out << app.help();
        return kExitOk;
    } catch (const CLI::CallForAllHelp &) {
        io.out << app.help("", CLI::AppFormatMode::All);
        return kExitOk;
    } catch (const CLI::ParseError &error) {
        // CLI11 reports help on a subcommand through the same path; find which app asked.
        if (error.get_exit_code() == 0) {
            return kExitOk;
        }
        io.err << "qvdovrin: " << error.what() << "\n";
        return kExitBadUsage;
    } catch (const ExitWithoutMessage &exit) {
        return exit.exitCode();
    } catch (const BadInput &error) {
        io.err << "qvdovrin: " << error.what() << "\n";
        return kExitBadInput;
    } catch (const std::exception &error) {
        io.err << "qvdovrin: " << error.what() << "\n";
        return kExitBadInput;
    }
    return kExitOk;
}

} // namespace qvdovrin
