// Service commands: serve, versions, lookup, report.
#include "commands.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <thread>

#include "base/json.h"
#include "base/text.h"
#include "downgrade/known_versions.h"
#include "posix/curl_http.h"
#include "posix/file_io.h"
#include "posix/json_preferences.h"
#include "posix/recording_http.h"
#include "posix/thread_queues.h"
#include "server/http_front.h"
#include "server/request_bodies.h"
#include "server/sqlite_storage.h"
#include "service/service_client.h"

namespace qvdovrin {

namespace {

constexpr const char *kDefaultListen = "127.0.0.1:8080";
constexpr const char *kDefaultDatabase = "data/versions.sqlite";
// Longer than the client's own request time-out, so a slow reply is reported by the client, not cut off here.
constexpr std::chrono::seconds kReplyWait{75};
constexpr int kFirstSuccessStatus = 200;
constexpr int kFirstRedirectStatus = 300;

struct ServerOption {
    std::string url;
};

std::string fromEnvironment(const char *name, const std::string &fallback) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::string(value) : fallback;
}

void checkServerUrl(const std::string &url) {
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0) {
        throw BadInput("the server URL must start with http:// or https://: " + url);
    }
}

// --server wins over QV_API_BASE_URL / QV_LOOKUP_URL, which win over the built-in defaults.
qv::ServiceEndpoints endpointsFor(const ServerOption &server) {
    const qv::ServiceEndpoints builtIn;
    std::string api = fromEnvironment("QV_API_BASE_URL", builtIn.apiBaseUrl);
    std::string lookup = fromEnvironment("QV_LOOKUP_URL", builtIn.lookupBaseUrl);
    if (!server.url.empty()) {
        api = lookup = server.url;
    }
    checkServerUrl(api);
    checkServerUrl(lookup);
    return qv::ServiceEndpoints::make(api, lookup);
}

std::string checkedStoreIdentifier(const std::string &text) {
    if (!qv::server::identifierFrom(std::string_view(text))) {
        throw BadInput("a store identifier is decimal digits: " + text);
    }
    return text;
}

void addServerOption(CLI::App &command, ServerOption &server) {
    command.add_option("--server", server.url,
                       "Service base URL (default: $QV_API_BASE_URL, $QV_LOOKUP_URL or " QV_DEFAULT_API_BASE_URL ")");
}

std::string percentEncoded(const std::string &text) {
    std::ostringstream out;
    for (const unsigned char c : text) {
        if (std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~') {
            out << c;
        } else {
            out << '%' << std::uppercase << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(c)
                << std::dec << std::nouppercase;
        }
    }
    return out.str();
}

// ---- serve ----

struct ServeOptions {
    std::string listen = kDefaultListen;
    std::string database = kDefaultDatabase;
    std::int64_t maxEvents = qv::server::SqliteOptions::kDefaultMaxSearchEvents;
};

void serve(const ServeOptions &options, Io &io) {
    const auto address = qv::server::parseListenAddress(options.listen);
    if (!address) {
        throw BadInput("--listen takes HOST:PORT with a port from 0 to 65535: " + options.listen);
    }
    const std::filesystem::path databasePath(options.database);
    std::error_code ignored;
    if (databasePath.has_parent_path()) {
        std::filesystem::create_directories(databasePath.parent_path(), ignored);
    }
    qv::server::SqliteOptions storageOptions;
    storageOptions.path = options.database;
    storageOptions.maxSearchEvents = options.maxEvents;
    std::string error;
    auto storage = qv::server::SqliteStorage::open(storageOptions, &error);
    if (!storage) {
        throw BadInput("cannot open the database: " + error);
    }
    qv::server::VersionService service(*storage);
    qv::server::HttpFront front(service);
    const auto port = front.bind(address->first, address->second);
    if (!port) {
        throw BadInput("cannot listen on " + options.listen);
    }

    // SIGINT and SIGTERM are taken by a thread of their own, which stops the server cleanly.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::atomic<bool> finished{false};
    std::thread stopper([&] {
        int received = 0;
        sigwait(&stopSignals, &received);
        while (!finished) {
            front.stop();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });

    io.out << "serving on http://" << address->first << ":" << *port << "/ (database " << options.database << ")"
           << std::endl;
    const bool served = front.serve();
    finished = true;
    // Wakes the signal thread when the server ended on its own.
    pthread_kill(stopper.native_handle(), SIGINT);
    stopper.join();
    pthread_sigmask(SIG_UNBLOCK, &stopSignals, nullptr);
    if (!served) {
        throw BadInput("the server stopped with an error");
    }
}

// ---- versions ----

void versions(const std::string &id, const ServerOption &server, bool asJson, Io &io) {
    const auto endpoints = endpointsFor(server);
    qv::posix::CurlHttp http;
    qv::posix::ThreadQueues queues;
    std::optional<qv::KnownVersions> known;
    qv::fetchKnownVersions(http, queues, endpoints.apiBaseUrl, checkedStoreIdentifier(id),
                           [&](qv::KnownVersions reply) { known = std::move(reply); });
    if (!queues.mainLoop().runUntil([&] { return known.has_value(); }, kReplyWait)) {
        throw BadInput("no reply from " + endpoints.apiBaseUrl);
    }
    if (known->error) {
        throw BadInput("cannot load the versions of " + id + ": " + *known->error);
    }
    if (asJson) {
        io.out << qv::toJson(qv::versionsToJson(known->versions)) << "\n";
        return;
    }
    std::size_t width = std::string("VERSION").size();
    for (const auto &version : known->versions) {
        width = std::max(width, version.bundle_version.value_or("").size());
    }
    io.out << std::left << std::setw(static_cast<int>(width)) << "VERSION"
           << "  EXTERNAL ID\n";
    for (const auto &version : known->versions) {
        io.out << std::setw(static_cast<int>(width)) << version.bundle_version.value_or("") << "  "
               << version.external_identifier.value_or("") << "\n";
    }
}

// ---- lookup ----

void lookupStoreIdentifier(const std::string &id, const ServerOption &server, Io &io) {
    qv::posix::CurlHttp http;
    qv::posix::ThreadQueues queues;
    const qv::posix::JsonFilePreferences preferences;
    qv::ServiceClient client(http, queues, preferences, endpointsFor(server));
    std::optional<std::string> bundleId;
    client.getBundleIdWithStoreIdentifier(checkedStoreIdentifier(id),
                                          [&](const std::string &found) { bundleId = found; });
    if (!queues.mainLoop().runUntil([&] { return bundleId.has_value(); }, kReplyWait) || bundleId->empty()) {
        throw BadInput("no app with store identifier " + id + " at " + client.endpoints().lookupBaseUrl);
    }
    io.out << *bundleId << "\n";
}

void lookupBundleId(const std::string &bundleId, const ServerOption &server, Io &io) {
    const auto endpoints = endpointsFor(server);
    qv::posix::CurlHttp http;
    qv::HttpRequest request;
    request.url = endpoints.lookupBaseUrl + "lookup?bundleId=" + percentEncoded(bundleId);
    const auto reply = http.fetch(request);
    const auto json = qv::parseJson(reply.succeeded() ? reply.body : std::string());
    const auto *object = json ? json->asDictionary() : nullptr;
    const auto *results = object != nullptr ? object->find(qv::Value("results")) : nullptr;
    const auto *list = results != nullptr ? results->asArray() : nullptr;
    const auto *first = list != nullptr && !list->empty() ? list->items().front().asDictionary() : nullptr;
    const auto *trackId = first != nullptr ? first->find(qv::Value("trackId")) : nullptr;
    if (trackId == nullptr || !trackId->isNumber()) {
        throw BadInput("no app with bundle identifier " + bundleId + " at " + endpoints.lookupBaseUrl +
                       (reply.error ? " (" + *reply.error + ")" : ""));
    }
    io.out << qv::textOf(*trackId) << "\n";
}

// ---- report ----

enum class ReportSource { Metadata, Item };

struct ReportOptions {
    std::string file;
    std::string preferencesFile;
    ServerOption server;
    bool dryRun = false;
};

qv::Value readJsonFile(const std::string &path) {
    const auto text = qv::posix::readFile(path);
    if (!text) {
        throw BadInput(text.error().detail);
    }
    auto json = qv::parseJson(*text);
    if (!json) {
        throw BadInput(path + ": malformed JSON: " + json.error().detail);
    }
    return *json;
}

qv::ReportOutcome buildReport(qv::ServiceClient &client, ReportSource source, const qv::Value &input) {
    return source == ReportSource::Metadata ? client.cacheAppWithMetadata(input) : client.cacheAppWithInfo(input);
}

std::string serviceErrorOf(const std::string &body) {
    const auto json = qv::parseJson(body);
    const auto *object = json ? json->asDictionary() : nullptr;
    const auto *message = object != nullptr ? object->find(qv::Value("error")) : nullptr;
    return message != nullptr && message->asString() != nullptr ? *message->asString() : body;
}

void report(ReportSource source, const ReportOptions &options, Io &io) {
    const qv::Value input = readJsonFile(options.file);
    const qv::posix::JsonFilePreferences noPreferences;
    std::unique_ptr<qv::posix::JsonFilePreferences> loaded;
    if (!options.preferencesFile.empty()) {
        auto read = qv::posix::JsonFilePreferences::load(options.preferencesFile);
        if (!read) {
            throw BadInput(read.error().describe());
        }
        loaded = std::move(*read);
    }
    const qv::Preferences &preferences = loaded ? *loaded : noPreferences;
    const auto endpoints = endpointsFor(options.server);
    if (options.dryRun) {
        qv::posix::RecordingHttp recorder;
        qv::posix::ThreadQueues queues(1);
        qv::ServiceClient client(recorder, queues, preferences, endpoints);
        const auto outcome = buildReport(client, source, input);
        if (outcome != qv::ReportOutcome::Sent) {
            throw BadInput("nothing to send: " + std::string(qv::describe(outcome)));
        }
        for (const auto &request : recorder.recorded()) {
            io.out << request.method << " " << request.url << "\n";
            for (const auto &[name, value] : request.headers) {
                io.out << name << ": " << value << "\n";
            }
            io.out << "\n" << request.body.value_or("") << "\n";
        }
        return;
    }
    qv::posix::CurlHttp http;
    qv::posix::ThreadQueues queues;
    qv::ServiceClient client(http, queues, preferences, endpoints);
    const auto outcome = buildReport(client, source, input);
    if (outcome != qv::ReportOutcome::Sent) {
        throw BadInput("nothing to send: " + std::string(qv::describe(outcome)));
    }
    http.waitForSends();
    for (const auto &sent : http.completedSends()) {
        if (!sent.result.answered()) {
            throw BadInput("could not send the report: " + *sent.result.error);
        }
        if (sent.result.status < kFirstSuccessStatus || sent.result.status >= kFirstRedirectStatus) {
            throw BadInput("the service refused the report (HTTP " + std::to_string(sent.result.status) +
                           "): " + serviceErrorOf(sent.result.body));
        }
        io.out << "reported to " << sent.request.url << " (HTTP " << sent.result.status << ")\n";
    }
}

void addReportCommand(CLI::App &parent, const char *name, const char *description, ReportSource source, Io &io) {
    auto options = std::make_shared<ReportOptions>();
    auto *command = parent.add_subcommand(name, description);
    command->add_option("FILE", options->file, "JSON file")->required();
    addServerOption(*command, options->server);
    command->add_flag("--dry-run", options->dryRun, "Print the request instead of sending it");
    command->add_option("--preferences", options->preferencesFile,
                        "JSON object of stored preferences (e.g. {\"disableAppCaching_QV\": true})");
    command->callback([options, source, &io] { report(source, *options, io); });
}

} // namespace

void registerServiceCommands(CLI::App &app, Io &io) {
    auto serveOptions = std::make_shared<ServeOptions>();
    auto *serveCommand = app.add_subcommand("serve", "Run the version service");
    serveCommand->add_option("--listen", serveOptions->listen, "HOST:PORT to listen on (port 0: any free port)")
        ->capture_default_str();
    serveCommand->add_option("--db", serveOptions->database, "SQLite database file (created on first start)")
        ->capture_default_str();
    serveCommand->add_option("--max-events", serveOptions->maxEvents, "Search events kept, newest first")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    serveCommand->callback([serveOptions, &io] { serve(*serveOptions, io); });

    auto versionsId = std::make_shared<std::string>();
    auto versionsServer = std::make_shared<ServerOption>();
    auto versionsJson = std::make_shared<bool>(false);
    auto *versionsCommand = app.add_subcommand("versions", "List the known versions of an app, newest first");
    versionsCommand->add_option("ID", *versionsId, "Store identifier of the app")->required();
    addServerOption(*versionsCommand, *versionsServer);
    versionsCommand->add_flag("--json", *versionsJson, "Print the service's JSON array");
    versionsCommand->callback(
        [versionsId, versionsServer, versionsJson, &io] { versions(*versionsId, *versionsServer, *versionsJson, io); });

    auto lookupId = std::make_shared<std::string>();
    auto lookupBundle = std::make_shared<std::string>();
    auto lookupServer = std::make_shared<ServerOption>();
    auto *lookupCommand =
        app.add_subcommand("lookup", "Store lookup: the bundle identifier of a store identifier, or the reverse");
    auto *idOption = lookupCommand->add_option("ID", *lookupId, "Store identifier; prints its bundle identifier");
    auto *bundleOption =
        lookupCommand->add_option("--bundle-id", *lookupBundle, "Bundle identifier; prints its store identifier");
    idOption->excludes(bundleOption);
    addServerOption(*lookupCommand, *lookupServer);
    lookupCommand->callback([lookupId, lookupBundle, lookupServer, &io] {
        if (!lookupBundle->empty()) {
            lookupBundleId(*lookupBundle, *lookupServer, io);
        } else if (!lookupId->empty()) {
            lookupStoreIdentifier(*lookupId, *lookupServer, io);
        } else {
            throw BadInput("give a store identifier or --bundle-id");
        }
    });

    auto *reportCommand = app.add_subcommand("report", "Send a version report as the phone does");
    reportCommand->require_subcommand(1);
    addReportCommand(*reportCommand, "metadata", "Report built from an installed app's metadata",
                     ReportSource::Metadata, io);
    addReportCommand(*reportCommand, "item", "Report built from a store item", ReportSource::Item, io);
}

} // namespace qvdovrin
