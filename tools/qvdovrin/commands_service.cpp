// Service commands: serve, versions, lookup, report.
#include "commands.h"
#include "service_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/json.h"
#include "downgrade/known_versions.h"
#include "posix/curl_http.h"
#include "posix/json_file.h"
#include "posix/json_preferences.h"
#include "posix/recording_http.h"
#include "posix/thread_queues.h"
#include "server/http_front.h"
#include "server/postgres_storage.h"
#include "server/request_bodies.h"
#include "server/serve.h"
#include "service/service_client.h"

namespace qvdovrin {

namespace {

constexpr std::string_view kDefaultListen = "127.0.0.1:8080";
constexpr std::string_view kDefaultDatabase = "data/versions.sqlite";
constexpr int kFirstRedirect = 300;
constexpr int kFirstClientError = 400;

// ---- serve ----

// What serve is told on its command line: the listening address, and the service's configuration, which the options
// fill in directly over its defaults.
struct ServeOptions {
    std::string listen{kDefaultListen};
    qv::server::ServeConfig config = [] {
        qv::server::ServeConfig defaults;
        defaults.database = kDefaultDatabase;
        defaults.threads = qv::server::hardwareThreads();
        return defaults;
    }();
};

// The database as a person finds it: the SQLite file's full path, or the PostgreSQL URL without its password.
std::string whereDataLives(const std::string &database) {
    if (qv::server::isPostgresUrl(database)) {
        return "the PostgreSQL database " + qv::server::withoutPassword(database);
    }
    std::error_code error;
    const auto absolute = std::filesystem::absolute(database, error);
    return error ? database : absolute.lexically_normal().string();
}

void serve(const ServeOptions &options, Io &io) {
    const auto address = qv::server::parseListenAddress(options.listen);
    if (!address) {
        throw BadInput("--listen takes HOST:PORT with a port from 0 to 65535: " + options.listen);
    }
    qv::server::ServeConfig config = options.config;
    config.host = address->first;
    config.port = address->second;
    const auto served = qv::server::serveUntilSignalled(config, [&](int port) {
        const std::string url = "http://" + config.host + ":" + std::to_string(port) + "/";
        io.out << "serving on " << url << " (database " << qv::server::withoutPassword(config.database) << ")\n"
               << "  feed it versions from app archives and metadata files you have, e.g.:\n"
               << "    qvdovrin import ~/Downloads/SomeApp.ipa --server " << url << "\n"
               << "  the data lives in " << whereDataLives(config.database) << "\n";
        if (!config.packageSource.empty()) {
            io.out << "  the package source is " << url << "repo/ (apt: deb " << url << "repo/ ./)\n";
        }
        io.out << std::flush;
    });
    if (!served) {
        throw BadInput(served.error().describe());
    }
}

// ---- versions ----

struct VersionsOptions {
    std::string id;
    std::string serverUrl;
    double timeoutSeconds = kDefaultTimeoutSeconds;
    bool json = false;
};

void versions(const VersionsOptions &options, Io &io) {
    const auto endpoints = endpointsFor(options.serverUrl);
    qv::posix::CurlHttp http(options.timeoutSeconds);
    qv::posix::ThreadQueues queues;
    std::optional<qv::KnownVersions> known;
    qv::fetchKnownVersions(http, queues, endpoints.apiBaseUrl, checkedStoreIdentifier(options.id),
                           [&](qv::KnownVersions reply) { known = std::move(reply); });
    if (!queues.mainLoop().runUntil([&] { return known.has_value(); }, replyWait(options.timeoutSeconds))) {
        throw BadInput("no reply from " + endpoints.apiBaseUrl);
    }
    if (!*known) {
        throw BadInput("cannot load the versions of " + options.id + ": " + known->error().describe());
    }
    const std::vector<qv::QVVersion> &list = **known;
    if (options.json) {
        io.out << qv::toJson(qv::versionsToJson(list)) << "\n";
        return;
    }
    std::size_t width = std::string("VERSION").size();
    for (const auto &version : list) {
        width = std::max(width, qv::shownVersionText(version).size());
    }
    io.out << std::left << std::setw(static_cast<int>(width)) << "VERSION"
           << "  EXTERNAL ID\n";
    for (const auto &version : list) {
        io.out << std::setw(static_cast<int>(width)) << qv::shownVersionText(version) << "  "
               << version.external_identifier.value_or("") << "\n";
    }
}

// ---- lookup ----

struct LookupOptions {
    std::string id;
    std::string bundleId;
    std::string serverUrl;
    double timeoutSeconds = kDefaultTimeoutSeconds;
};

void lookup(const LookupOptions &options, Io &io) {
    if (options.bundleId.empty() && options.id.empty()) {
        throw BadInput("give a store identifier or --bundle-id");
    }
    const bool byBundleId = !options.bundleId.empty();
    const std::string storeIdentifier = byBundleId ? std::string() : checkedStoreIdentifier(options.id);
    qv::posix::CurlHttp http(options.timeoutSeconds);
    qv::posix::ThreadQueues queues;
    const qv::posix::JsonFilePreferences preferences;
    qv::ServiceClient client(http, queues, preferences, endpointsFor(options.serverUrl));
    std::optional<qv::ServiceClient::LookupReply> answer;
    const auto deliver = [&](qv::ServiceClient::LookupReply reply) { answer.emplace(std::move(reply)); };
    if (byBundleId) {
        client.lookUpStoreIdentifier(options.bundleId, deliver);
    } else {
        client.lookUpBundleId(storeIdentifier, deliver);
    }
    const std::string asked = byBundleId ? "bundle identifier " + options.bundleId : "store identifier " + options.id;
    const std::string &where = client.endpoints().lookupBaseUrl;
    if (!queues.mainLoop().runUntil([&] { return answer.has_value(); }, replyWait(options.timeoutSeconds))) {
        throw BadInput("no reply from " + where);
    }
    if (!*answer) {
        if (answer->error().code == qv::ErrorCode::NotFound) {
            throw BadInput("no app with " + asked + " at " + where);
        }
        throw BadInput("cannot look up " + asked + " at " + where + ": " + answer->error().describe());
    }
    io.out << answer->value() << "\n";
}

// ---- report ----

enum class ReportSource { Metadata, Item };

struct ReportOptions {
    ReportSource source = ReportSource::Metadata;
    std::string file;
    std::string preferencesFile;
    std::string serverUrl;
    double timeoutSeconds = kDefaultTimeoutSeconds;
    bool dryRun = false;
};

qv::ReportOutcome buildReport(qv::ServiceClient &client, ReportSource source, const qv::Value &input) {
    return source == ReportSource::Metadata ? client.cacheAppWithMetadata(input) : client.cacheAppWithInfo(input);
}

std::string serviceErrorOf(const std::string &body) {
    const auto json = qv::parseJson(body);
    const std::string *message = json ? (*json)["error"].asString() : nullptr;
    return message != nullptr ? *message : body;
}

void report(const ReportOptions &options, Io &io) {
    const qv::Value input = valueOrBadInput(qv::posix::readJsonFile(options.file));
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
    const auto endpoints = endpointsFor(options.serverUrl);
    if (options.dryRun) {
        qv::posix::RecordingHttp recorder;
        qv::posix::ThreadQueues queues(1);
        qv::ServiceClient client(recorder, queues, preferences, endpoints);
        const auto outcome = buildReport(client, options.source, input);
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
    qv::posix::CurlHttp http(options.timeoutSeconds);
    qv::posix::ThreadQueues queues;
    qv::ServiceClient client(http, queues, preferences, endpoints);
    const auto outcome = buildReport(client, options.source, input);
    if (outcome != qv::ReportOutcome::Sent) {
        throw BadInput("nothing to send: " + std::string(qv::describe(outcome)));
    }
    http.waitForSends();
    for (const auto &sent : http.completedSends()) {
        if (!sent.result.answered()) {
            throw BadInput("could not send the report: " + *sent.result.error);
        }
        const std::string status = "HTTP " + std::to_string(sent.result.status);
        if (sent.result.status >= kFirstRedirect && sent.result.status < kFirstClientError) {
            throw BadInput("the service answered the report with a redirect (" + status +
                           "); a report is never sent on to another address");
        }
        if (!sent.result.succeeded()) {
            const std::string said = serviceErrorOf(sent.result.body);
            throw BadInput("the service refused the report (" + status + ")" + (said.empty() ? "" : ": " + said));
        }
        io.out << "reported to " << sent.request.url << " (HTTP " << sent.result.status << ")\n";
    }
}

void addReportCommand(CLI::App &parent, const char *name, const char *description, ReportSource source, Io &io) {
    auto options = std::make_shared<ReportOptions>();
    options->source = source;
    auto *command = parent.add_subcommand(name, description);
    command->add_option("FILE", options->file, "JSON file")->required();
    addServerOption(*command, options->serverUrl);
    addTimeoutOption(*command, options->timeoutSeconds);
    command->add_flag("--dry-run", options->dryRun, "Print the request instead of sending it");
    command->add_option("--preferences", options->preferencesFile,
                        "JSON object of stored preferences (e.g. {\"disableAppCaching_QV\": true})");
    command->callback([options, &io] { report(*options, io); });
}

} // namespace

void registerServiceCommands(CLI::App &app, Io &io) {
    auto serveOptions = std::make_shared<ServeOptions>();
    auto *serveCommand = app.add_subcommand("serve", "Run the version service");
    serveCommand->add_option("--listen", serveOptions->listen, "HOST:PORT to listen on (port 0: any free port)")
        ->capture_default_str();
    serveCommand
        ->add_option("--db", serveOptions->config.database,
                     "SQLite database file (created on first start), or a postgresql:// URL of a database that "
                     "several instances may share")
        ->capture_default_str();
    serveCommand->add_option("--max-events", serveOptions->config.maxSearchEvents, "Search events kept, newest first")
        ->capture_default_str()
        ->check(wholeNumber(1));
    serveCommand
        ->add_option("--max-event-bytes", serveOptions->config.maxSearchEventBytes, "Bytes of search events kept")
        ->capture_default_str()
        ->check(wholeNumber(1));
    serveCommand->add_option("--max-versions-per-app", serveOptions->config.maxVersionsPerApp, "Versions kept per app")
        ->capture_default_str()
        ->check(wholeNumber(1));
    serveCommand
        ->add_option("--max-versions-per-report", serveOptions->config.maxVersionsPerReport,
                     "Versions one report may carry")
        ->capture_default_str()
        ->check(wholeNumber(1));
    serveCommand
        ->add_option("--reply-cache-bytes", serveOptions->config.replyCacheBytes, "Memory for cached versions lists")
        ->capture_default_str()
        ->check(wholeNumber(0));
    serveCommand
        ->add_option("--max-version-bytes", serveOptions->config.maxVersionBytes, "Bytes of apps and versions kept")
        ->capture_default_str()
        ->check(wholeNumber(1));
    serveCommand
        ->add_option("--max-writes-per-minute", serveOptions->config.writesPerMinute,
                     "Reports and events one client may send per minute (0: no limit)")
        ->capture_default_str()
        ->check(wholeNumber(0));
    serveCommand->add_option("--client-address-header", serveOptions->config.clientAddressHeader,
                             "Header a trusted proxy sets to the client's address (e.g. X-Real-IP)");
    serveCommand->add_option("--access-log", serveOptions->config.accessLog,
                             "Write one line per request to this file (- for standard output); queries are never "
                             "written");
    serveCommand->add_option("--repo", serveOptions->config.packageSource,
                             "Serve this folder (made by make repo) as the package source under /repo/");
    constexpr std::int64_t kMostThreads = 1024;
    serveCommand
        ->add_option("--threads", serveOptions->config.threads,
                     "Threads that read, answer and write requests (default: the machine's hardware threads)")
        ->capture_default_str()
        ->check(wholeNumber(1, kMostThreads));
    serveCommand->callback([serveOptions, &io] { serve(*serveOptions, io); });

    auto versionsOptions = std::make_shared<VersionsOptions>();
    auto *versionsCommand = app.add_subcommand("versions", "List the known versions of an app, newest first");
    versionsCommand->add_option("ID", versionsOptions->id, "Store identifier of the app")->required();
    addServerOption(*versionsCommand, versionsOptions->serverUrl);
    addTimeoutOption(*versionsCommand, versionsOptions->timeoutSeconds);
    versionsCommand->add_flag("--json", versionsOptions->json, "Print the service's JSON array");
    versionsCommand->callback([versionsOptions, &io] { versions(*versionsOptions, io); });

    auto lookupOptions = std::make_shared<LookupOptions>();
    auto *lookupCommand =
        app.add_subcommand("lookup", "Store lookup: the bundle identifier of a store identifier, or the reverse");
    auto *idOption =
        lookupCommand->add_option("ID", lookupOptions->id, "Store identifier; prints its bundle identifier");
    auto *bundleOption = lookupCommand->add_option("--bundle-id", lookupOptions->bundleId,
                                                   "Bundle identifier; prints its store identifier");
    idOption->excludes(bundleOption);
    addServerOption(*lookupCommand, lookupOptions->serverUrl);
    addTimeoutOption(*lookupCommand, lookupOptions->timeoutSeconds);
    lookupCommand->callback([lookupOptions, &io] { lookup(*lookupOptions, io); });

    auto *reportCommand = app.add_subcommand("report", "Send a version report as the phone does");
    reportCommand->require_subcommand(1);
    addReportCommand(*reportCommand, "metadata", "Report built from an installed app's metadata",
                     ReportSource::Metadata, io);
    addReportCommand(*reportCommand, "item", "Report built from a store item", ReportSource::Item, io);
}

} // namespace qvdovrin
