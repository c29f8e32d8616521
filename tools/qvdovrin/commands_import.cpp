// The import command: version reports out of the app archives and metadata files people already have.
#include "commands.h"
#include "service_options.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/json.h"
#include "base/text.h"
#include "posix/app_archive.h"
#include "posix/curl_http.h"
#include "posix/file_io.h"
#include "service/service_client.h"

namespace qvdovrin {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kArchiveExtension = ".ipa";
// A handful of files finish before anyone wonders; past that a terminal shows where the import is.
constexpr std::size_t kProgressAfterFiles = 5;
constexpr int kFirstRedirect = 300;
constexpr int kFirstClientError = 400;

struct ImportOptions {
    std::vector<std::string> paths;
    std::string serverUrl;
    double timeoutSeconds = kDefaultTimeoutSeconds;
    bool dryRun = false;
    bool json = false;
};

enum class SourceKind { Archive, MetadataFile };

struct Source {
    std::string path;
    SourceKind kind = SourceKind::Archive;
};

bool hasArchiveExtension(const fs::path &path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == kArchiveExtension;
}

// What the import counts: distinct apps, versions with a display text, and ids known only by number.
class Tally {
  public:
    void add(const qv::VersionReportRequest &request) {
        apps_.insert(request.storeIdentifier);
        for (const qv::Value &version : *request.body["versions"].asArray()) {
            const std::string key = request.storeIdentifier + ":" + qv::textOf(version["externalId"]);
            if (qv::textOf(version["display"]).empty()) {
                unnamed_.insert(key);
            } else {
                named_.insert(key);
            }
        }
    }
    void skip() { ++skipped_; }

    std::size_t apps() const { return apps_.size(); }
    std::size_t versions() const { return named_.size(); }
    std::size_t withoutDisplay() const {
        return static_cast<std::size_t>(std::count_if(unnamed_.begin(), unnamed_.end(),
                                                      [&](const std::string &key) { return named_.count(key) == 0; }));
    }
    std::size_t skipped() const { return skipped_; }

  private:
    std::set<std::string> apps_;
    std::set<std::string> named_;
    std::set<std::string> unnamed_;
    std::size_t skipped_ = 0;
};

std::string plural(std::size_t count, const std::string &one, const std::string &many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// One stderr line per problem; a progress line on a terminal is cleared first so the two never share a line.
class Reporter {
  public:
    Reporter(Io &io, std::size_t total)
        : io_(io), total_(total),
          progress_(total > kProgressAfterFiles && &io.err == &std::cerr && ::isatty(STDERR_FILENO) == 1) {}

    void progress(std::size_t done, const std::string &path) {
        if (progress_) {
            io_.err << "\r\033[K"
                    << "importing " << done << "/" << total_ << ": " << path << std::flush;
        }
    }
    void problem(const std::string &path, const std::string &reason) {
        clear();
        io_.err << "qvdovrin: " << path << ": " << reason << "\n";
    }
    void clear() {
        if (progress_) {
            io_.err << "\r\033[K" << std::flush;
        }
    }

  private:
    Io &io_;
    std::size_t total_;
    bool progress_;
};

// Every path as given; a folder is searched, without following links, for app archives and metadata files.
std::vector<Source> sourcesOf(const std::vector<std::string> &paths, Reporter &reporter, Tally &tally) {
    std::vector<Source> sources;
    for (const std::string &path : paths) {
        std::error_code error;
        const fs::file_status status = fs::symlink_status(path, error);
        if (fs::is_directory(status) || (fs::is_symlink(status) && fs::is_directory(fs::status(path, error)))) {
            std::vector<Source> found;
            fs::recursive_directory_iterator walk(path, fs::directory_options::skip_permission_denied, error);
            for (; !error && walk != fs::recursive_directory_iterator(); walk.increment(error)) {
                const fs::path &file = walk->path();
                if (!walk->is_regular_file(error)) {
                    continue;
                }
                if (hasArchiveExtension(file)) {
                    found.push_back({file.string(), SourceKind::Archive});
                } else if (file.filename() == qv::posix::kMetadataFileName) {
                    found.push_back({file.string(), SourceKind::MetadataFile});
                }
            }
            if (error) {
                reporter.problem(path, "cannot search the folder: " + error.message());
                tally.skip();
            }
            std::sort(found.begin(), found.end(), [](const Source &a, const Source &b) { return a.path < b.path; });
            sources.insert(sources.end(), found.begin(), found.end());
            continue;
        }
        const bool metadataFile = fs::path(path).extension() == ".plist";
        sources.push_back({path, metadataFile ? SourceKind::MetadataFile : SourceKind::Archive});
    }
    return sources;
}

qv::Result<qv::VersionReportRequest> reportOf(const Source &source) {
    auto bytes = source.kind == SourceKind::Archive ? qv::posix::metadataBytesFromArchive(source.path)
                                                    : qv::posix::readFile(source.path, qv::posix::kMaxMetadataBytes);
    if (!bytes) {
        return bytes.error();
    }
    const auto metadata = qv::posix::readMetadata(*bytes);
    if (!metadata) {
        return qv::fail(metadata.error().code, std::string(qv::errorMessage(metadata.error().code)) + " (" +
                                                   metadata.error().describe() + ")");
    }
    qv::BuiltReport built = qv::reportFromArchiveMetadata(*metadata);
    if (!built.request) {
        return qv::fail(qv::ErrorCode::WrongType, "nothing to import: " + std::string(qv::describe(built.outcome)));
    }
    return std::move(*built.request);
}

std::string serviceErrorOf(const std::string &body) {
    const auto json = qv::parseJson(body);
    const std::string *message = json ? (*json)["error"].asString() : nullptr;
    return message != nullptr ? *message : body;
}

// Nothing when the service took the report; otherwise why not, for the file's line.
std::optional<std::string> refusal(const qv::HttpResult &result) {
    const std::string status = "HTTP " + std::to_string(result.status);
    if (result.status >= kFirstRedirect && result.status < kFirstClientError) {
        return "the service answered with a redirect (" + status + "); a report is never sent on";
    }
    if (!result.succeeded()) {
        const std::string said = serviceErrorOf(result.body);
        return "the service refused the report (" + status + ")" + (said.empty() ? "" : ": " + said);
    }
    return std::nullopt;
}

void printSummary(const Tally &tally, bool dryRun, const qv::Array &requests, bool json, Io &io) {
    if (json) {
        qv::Dictionary summary{{"apps", static_cast<std::int64_t>(tally.apps())},
                               {"versions", static_cast<std::int64_t>(tally.versions())},
                               {"idsWithoutDisplay", static_cast<std::int64_t>(tally.withoutDisplay())},
                               {"skipped", static_cast<std::int64_t>(tally.skipped())}};
        if (dryRun) {
            summary.set("requests", qv::Value(requests));
        }
        io.out << qv::toJson(qv::Value(std::move(summary))) << "\n";
        return;
    }
    io.out << (dryRun ? "would import " : "imported ") << plural(tally.apps(), "app", "apps") << ": "
           << plural(tally.versions(), "version", "versions") << ", " << plural(tally.withoutDisplay(), "id", "ids")
           << " without display; " << plural(tally.skipped(), "file", "files") << " skipped\n";
}

void importFiles(const ImportOptions &options, Io &io) {
    const auto endpoints = endpointsFor(options.serverUrl);
    Tally tally;
    Reporter quiet(io, 0);
    const std::vector<Source> sources = sourcesOf(options.paths, quiet, tally);
    Reporter reporter(io, sources.size());
    qv::posix::CurlHttp http(options.timeoutSeconds);
    qv::Array requests;
    std::size_t done = 0;
    for (const Source &source : sources) {
        reporter.progress(++done, source.path);
        auto request = reportOf(source);
        if (!request) {
            reporter.problem(source.path, request.error().describe());
            tally.skip();
            continue;
        }
        const qv::HttpRequest post =
            qv::makeJsonPost(qv::versionsPath(request->storeIdentifier), endpoints.apiBaseUrl, request->body);
        if (options.dryRun) {
            if (options.json) {
                requests.push_back(qv::Value(qv::Dictionary{{"url", post.url}, {"body", request->body}}));
            } else {
                reporter.clear();
                io.out << post.method << " " << post.url << "\n" << post.body.value_or("") << "\n";
            }
            tally.add(*request);
            continue;
        }
        const qv::HttpResult result = http.fetch(post);
        if (!result.answered()) {
            // The service is down or elsewhere: every further file would fail the same way.
            reporter.clear();
            throw BadInput("could not send the report of " + source.path + ": " + *result.error);
        }
        if (const auto reason = refusal(result)) {
            reporter.problem(source.path, *reason);
            tally.skip();
            continue;
        }
        tally.add(*request);
    }
    reporter.clear();
    printSummary(tally, options.dryRun, requests, options.json, io);
    if (tally.skipped() > 0) {
        throw ExitWithoutMessage(kExitBadInput);
    }
}

} // namespace

void registerImportCommand(CLI::App &app, Io &io) {
    auto options = std::make_shared<ImportOptions>();
    auto *command = app.add_subcommand(
        "import", "Report the versions named in app archives (.ipa) and iTunesMetadata.plist files, or in folders "
                  "holding them; nothing of the buyer's account is sent");
    command->add_option("PATH", options->paths, "App archive, metadata file or folder")->required();
    addServerOption(*command, options->serverUrl);
    addTimeoutOption(*command, options->timeoutSeconds);
    command->add_flag("--dry-run", options->dryRun, "Print the reports instead of sending them");
    command->add_flag("--json", options->json, "Print the summary as JSON (with the reports on a dry run)");
    command->callback([options, &io] { importFiles(*options, io); });
}

} // namespace qvdovrin
