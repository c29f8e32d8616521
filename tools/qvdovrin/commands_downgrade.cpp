// qvdovrin downgrade: the phone's known-versions flow in a terminal, ending in the buy parameters to send.
#include "commands.h"
#include "service_options.h"
#include "terminal_ui.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <iostream>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "base/json.h"
#include "base/text.h"
#include "downgrade/versions_list_model.h"
#include "posix/curl_http.h"
#include "posix/thread_queues.h"
#include "service/buy_parameters.h"
#include "store/purchase_initiated.h"

namespace qvdovrin {

namespace {

struct DowngradeOptions {
    std::string id;
    std::string serverUrl;
    double timeoutSeconds = kDefaultTimeoutSeconds;
    std::optional<std::string> buyParameters;
    std::string version;
    bool previous = false;
    bool json = false;
};

// The purchase asking for the version: the given buy parameters rewritten, or a new purchase.
std::string buyParametersFor(const DowngradeOptions &options, const std::string &storeIdentifier,
                             const std::string &version) {
    return options.buyParameters ? qv::buyParametersAskingForVersion(*options.buyParameters, version)
                                 : qv::newPurchaseBuyParameters(storeIdentifier, version, false);
}

void printChoice(const DowngradeOptions &options, const std::string &storeIdentifier, const std::string &version,
                 const std::string &buyParameters, Io &io) {
    if (options.json) {
        io.out << qv::toJson(qv::Value(qv::Dictionary{{"appId", qv::Value(storeIdentifier)},
                                                      {"version", qv::Value(version)},
                                                      {"buyParameters", qv::Value(buyParameters)}}))
               << "\n";
    } else {
        io.out << buyParameters << "\n";
    }
}

std::string checkedVersion(const std::optional<std::string> &version) {
    if (!version) {
        throw BadInput("that version has no external identifier; type one with +");
    }
    if (const auto identifier = qv::strictInteger(*version); !identifier) {
        throw BadInput(identifier.error().code == qv::ErrorCode::IntegerOutOfRange
                           ? "an external version identifier is too large (at most 9223372036854775807): " + *version
                           : "an external version identifier is decimal digits: " + *version);
    }
    return *version;
}

// Loads the list through the same screen model the phone draws; nothing is printed until it has loaded.
std::shared_ptr<qv::VersionsListModel> loadedList(TerminalUi &ui, qv::posix::CurlHttp &http,
                                                  qv::posix::ThreadQueues &queues, const std::string &apiBaseUrl,
                                                  const std::string &storeIdentifier, double timeoutSeconds) {
    auto list = std::make_shared<qv::VersionsListModel>(ui, qv::serviceVersionsSource(http, queues, apiBaseUrl),
                                                        storeIdentifier);
    ui.presentScreen(list, qv::Presenter::TopMost);
    list->appeared();
    if (!queues.mainLoop().runUntil([&] { return !list->refreshing(); }, replyWait(timeoutSeconds))) {
        throw BadInput("no reply from " + apiBaseUrl);
    }
    ui.runDelayed();
    if (ui.alert()) {
        throw BadInput("cannot load the versions of " + storeIdentifier + ": " + *ui.alert());
    }
    if (list->rows().empty()) {
        throw BadInput("no known versions of " + storeIdentifier + " at " + apiBaseUrl);
    }
    return list;
}

void printVersionsJson(const DowngradeOptions &options, const std::string &storeIdentifier,
                       const qv::VersionsListModel &list, Io &io) {
    qv::Array versions;
    for (const auto &row : list.rows()) {
        versions.push_back(qv::Value(
            qv::Dictionary{{"bundle_version", qv::Value(row.text)},
                           {"external_identifier", qv::Value(row.detailText)},
                           {"buyParameters", qv::Value(buyParametersFor(options, storeIdentifier, row.detailText))}}));
    }
    io.out << qv::toJson(
                  qv::Value(qv::Dictionary{{"appId", qv::Value(storeIdentifier)}, {"versions", qv::Value(versions)}}))
           << "\n";
}

// Shows the rows and acts on one answer: a row number, "+" to type an identifier, or q / an empty line to leave.
void askForChoice(TerminalUi &ui, qv::VersionsListModel &list, Io &io) {
    io.err << list.title() << " of " << list.storeIdentifier() << "\n";
    const auto &rows = list.rows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        io.err << "  " << i + 1 << ") " << rows[i].text << "  (" << rows[i].detailText << ")\n";
    }
    io.err << "Choose 1-" << rows.size() << ", + to type an external version id, or q to cancel: " << std::flush;
    const auto line = ui.readLine();
    if (!line || line->empty() || *line == "q") {
        list.leave();
        return;
    }
    if (*line == "+") {
        list.typeVersion();
        return;
    }
    const auto choice = qv::strictInteger(*line, 1, static_cast<std::int64_t>(rows.size()));
    if (!choice) {
        throw BadInput("not a choice: " + *line + " (choose 1-" + std::to_string(rows.size()) + ")");
    }
    list.chooseRow(static_cast<std::size_t>(*choice - 1));
}

void downgrade(const DowngradeOptions &options, Io &io) {
    const std::string storeIdentifier = checkedStoreIdentifier(options.id);
    if (options.previous) {
        if (!options.buyParameters) {
            throw BadInput("--previous needs --buy-params: the purchase carries the installed version");
        }
        const std::string slot = qv::pendingVersionSlot(qv::kPreviousVersionMarker, *options.buyParameters);
        printChoice(options, storeIdentifier, std::string(qv::kPreviousVersionMarker),
                    qv::rewrittenPurchaseBuyParameters(storeIdentifier, slot), io);
        return;
    }
    if (!options.version.empty()) {
        const std::string version = checkedVersion(options.version);
        printChoice(options, storeIdentifier, version, buyParametersFor(options, storeIdentifier, version), io);
        return;
    }
    const auto endpoints = endpointsFor(options.serverUrl);
    qv::posix::CurlHttp http(options.timeoutSeconds);
    qv::posix::ThreadQueues queues;
    // The list and its questions go to stderr, so stdout carries nothing but the purchase.
    TerminalUi ui(io.in, io.err, &io.in != &std::cin || isatty(STDIN_FILENO) == 0);
    auto list = loadedList(ui, http, queues, endpoints.apiBaseUrl, storeIdentifier, options.timeoutSeconds);
    if (options.json) {
        printVersionsJson(options, storeIdentifier, *list, io);
        return;
    }
    std::optional<std::optional<std::string>> chosen;
    list->setCompletion([&](std::optional<std::string> version) { chosen = std::move(version); });
    askForChoice(ui, *list, io);
    if (!chosen) {
        throw BadInput("nothing chosen; the purchase stays as it was");
    }
    const std::string version = checkedVersion(*chosen);
    printChoice(options, storeIdentifier, version, buyParametersFor(options, storeIdentifier, version), io);
}

} // namespace

void registerDowngradeCommand(CLI::App &app, Io &io) {
    auto options = std::make_shared<DowngradeOptions>();
    auto *command = app.add_subcommand(
        "downgrade", "Choose one of an app's known versions and print the buy parameters that ask for it");
    command->add_option("APP_ID", options->id, "The app's store identifier")->required();
    addServerOption(*command, options->serverUrl);
    addTimeoutOption(*command, options->timeoutSeconds);
    command->add_option("--buy-params", options->buyParameters,
                        "The purchase to rewrite (its first appExtVrsId is set); without it a new purchase is printed");
    command->add_option("--version", options->version, "The external version identifier to ask for (no list shown)");
    command->add_flag("--previous", options->previous,
                      "Ask for the version the purchase already carries, flagged as the previous one");
    command->add_flag("--json", options->json, "Print JSON; without --version, the list with each version's purchase");
    command->callback([options, &io] { downgrade(*options, io); });
}

} // namespace qvdovrin
