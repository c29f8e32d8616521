// Core commands: compare, state, buyparams.
#include "commands.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"
#include "base/text.h"
#include "base/value.h"
#include "service/buy_parameters.h"
#include "service/version_compare.h"
#include "store/item_state.h"
#include "store/purchase_intercept.h"
#include "store/text_purchase.h"

namespace qvdovrin {

namespace {

constexpr std::string_view kDecimalDigits = "0123456789";

std::int64_t parseInteger(const std::string &text) {
    const auto value =
        qv::strictInteger(text, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
    if (!value) {
        throw BadInput((value.error().code == qv::ErrorCode::IntegerOutOfRange ? "state out of range: "
                                                                               : "state is not an integer: ") +
                       text);
    }
    return *value;
}

// The store hands over only the low 32 bits of its state.
std::int32_t lowWord(std::int64_t value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

// ---- compare ----

struct CompareOptions {
    std::string receiver;
    std::optional<std::string> other;
};

void compare(const CompareOptions &options, Io &io) {
    const std::optional<std::string_view> other =
        options.other ? std::optional<std::string_view>(*options.other) : std::nullopt;
    io.out << static_cast<int>(qv::compareToVersion(options.receiver, other)) << "\n";
}

void addCompare(CLI::App &app, Io &io) {
    auto options = std::make_shared<CompareOptions>();
    auto *command = app.add_subcommand("compare", "Compare two dotted versions; prints -1 (A older), 0 or 1 (A newer)");
    command->add_option("A", options->receiver, "The version to compare")->required();
    command->add_option("B", options->other, "The other version; omitted, it compares as all zeros");
    command->callback([options, &io] { compare(*options, io); });
}

// ---- state ----

struct StateOptions {
    std::string state;
    bool json = false;
};

void showState(const StateOptions &options, Io &io) {
    const std::int32_t state = lowWord(parseInteger(options.state));
    const bool supported = qv::supportedAppState(state);
    const bool installed = qv::installedAppState(state);
    const bool updateAvailable = qv::updateAvailableAppState(state);
    if (options.json) {
        const qv::Dictionary result{
            {"supported", supported}, {"installed", installed}, {"updateAvailable", updateAvailable}};
        io.out << qv::toJson(result) << "\n";
        return;
    }
    const auto answer = [](bool yes) { return yes ? "yes" : "no"; };
    io.out << "supported: " << answer(supported) << "\n"
           << "installed: " << answer(installed) << "\n"
           << "update available: " << answer(updateAvailable) << "\n";
}

void addState(CLI::App &app, Io &io) {
    auto options = std::make_shared<StateOptions>();
    auto *command =
        app.add_subcommand("state", "Show which item-state sets (supported, installed, update available) hold N");
    command->add_option("N", options->state, "The store's item state (its low 32 bits are used)")->required();
    command->add_flag("--json", options->json, "Print a JSON object instead of lines");
    command->callback([options, &io] { showState(*options, io); });
}

// ---- buyparams app / version ----

struct ExtractOptions {
    std::string params;
    std::string (*extract)(std::string_view) = nullptr;
};

void printExtracted(const ExtractOptions &options, Io &io) {
    io.out << options.extract(options.params) << "\n";
}

void addExtract(CLI::App &buyparams, Io &io, const std::string &name, const std::string &description,
                std::string (*extractor)(std::string_view)) {
    auto options = std::make_shared<ExtractOptions>();
    options->extract = extractor;
    auto *command = buyparams.add_subcommand(name, description);
    command->add_option("PARAMS", options->params, "A buy-parameter string")->required();
    command->callback([options, &io] { printExtracted(*options, io); });
}

// ---- buyparams set-version ----

struct SetVersionOptions {
    std::string params;
    std::string version;
};

void setVersion(const SetVersionOptions &options, Io &io) {
    const auto rewritten = qv::buyParametersWithVersion(options.params, options.version);
    if (!rewritten) {
        throw BadInput("the version could not be written");
    }
    io.out << *rewritten << "\n";
}

void addSetVersion(CLI::App &buyparams, Io &io) {
    auto options = std::make_shared<SetVersionOptions>();
    auto *command = buyparams.add_subcommand(
        "set-version", "Write VERSION into every appExtVrsId pair (any spelling) and drop \"&installed=1\"");
    command->add_option("PARAMS", options->params, "A buy-parameter string")->required();
    command->add_option("VERSION", options->version, "The external version identifier to write")->required();
    command->callback([options, &io] { setVersion(*options, io); });
}

// ---- buyparams new ----

struct NewPurchaseOptions {
    std::string app;
    std::optional<std::string> version;
    bool installed = false;
};

void newPurchase(const NewPurchaseOptions &options, Io &io) {
    const std::optional<std::string_view> version =
        options.version ? std::optional<std::string_view>(*options.version) : std::nullopt;
    io.out << qv::newPurchaseBuyParameters(options.app, version, options.installed) << "\n";
}

void addNew(CLI::App &buyparams, Io &io) {
    auto options = std::make_shared<NewPurchaseOptions>();
    auto *command = buyparams.add_subcommand("new", "Print the buy parameters of a new purchase of one version");
    command->add_option("--app", options->app, "The app's store identifier")->required();
    command->add_option("--version", options->version, "The external version identifier; omitted, it reads (null)");
    command->add_flag("--installed", options->installed, "The app is on the device: append \"&installed=1\"");
    command->callback([options, &io] { newPurchase(*options, io); });
}

// ---- buyparams intercept ----

struct InterceptOptions {
    std::vector<std::string> pending;
    std::vector<std::string> purchases;
};

void intercept(const InterceptOptions &options, Io &io) {
    qv::PendingDowngrades pending;
    for (const auto &entry : options.pending) {
        const auto equals = entry.find('=');
        if (equals == std::string::npos) {
            throw BadInput("pending entry is not ID=VALUE: " + entry);
        }
        const std::string storeIdentifier = entry.substr(0, equals);
        // Keys are matched against the digits read from salableAdamId, so any other key could never match;
        // most often it is a PARAMS argument that --pending swallowed because "--" was left out.
        if (storeIdentifier.find_first_not_of(kDecimalDigits) != std::string::npos) {
            throw BadInput("pending store identifier is not decimal (end --pending with -- before PARAMS): " + entry);
        }
        pending.set(storeIdentifier, entry.substr(equals + 1));
    }
    std::vector<qv::PurchaseHandle> batch;
    batch.reserve(options.purchases.size());
    for (const auto &params : options.purchases) {
        batch.push_back(std::make_shared<qv::TextPurchase>(params));
    }
    qv::TextPurchaseMaker maker;
    const auto queued = qv::addPurchasesIntercept(batch, pending, maker);

    qv::Array purchases;
    for (std::size_t i = 0; i < queued.size(); ++i) {
        purchases.push_back(qv::Dictionary{{"buyParameters", queued[i]->buyParameters()},
                                           {"replaced", i >= batch.size() || queued[i] != batch[i]}});
    }
    qv::Dictionary left;
    for (const auto &[storeIdentifier, value] : pending.snapshot()) {
        left.set(storeIdentifier, value);
    }
    io.out << qv::toJson(qv::Dictionary{{"purchases", purchases}, {"pending", left}}) << "\n";
}

void addIntercept(CLI::App &buyparams, Io &io) {
    auto options = std::make_shared<InterceptOptions>();
    auto *command = buyparams.add_subcommand(
        "intercept", "Run the purchase intercept over a batch (one purchase per PARAMS) with a pending table");
    command->add_option("--pending", options->pending,
                        "Pending downgrades as ID=VALUE (VALUE a version identifier or \"previous\"); end the "
                        "list with --");
    command->add_option("PARAMS", options->purchases, "Buy parameters of the purchases, in batch order");
    command->callback([options, &io] { intercept(*options, io); });
}

} // namespace

void registerCoreCommands(CLI::App &app, Io &io) {
    addCompare(app, io);
    addState(app, io);
    auto *buyparams = app.add_subcommand("buyparams", "Read, rewrite, build and intercept buy-parameter strings");
    buyparams->require_subcommand(1);
    addExtract(*buyparams, io, "app", "Print the store identifier (salableAdamId); an empty line when absent",
               qv::appIdentifierFromBuyParameters);
    addExtract(*buyparams, io, "version",
               "Print the external version identifier (appExtVrsId); an empty line "
               "when absent",
               qv::versionFromBuyParameters);
    addSetVersion(*buyparams, io);
    addNew(*buyparams, io);
    addIntercept(*buyparams, io);
}

} // namespace qvdovrin
