// SQLite storage of version reports and search events.
#include "server/sqlite_storage.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <utility>

#include "server/clients.h"
#include "server/schema.h"

namespace qv::server {

namespace {

// The statements stay C strings: SQLite reads them up to their terminating NUL.
constexpr const char *kAppsToIndex = "SELECT app_id, bundle_id, title FROM apps";
constexpr const char *kInsertSearchTerm = "INSERT OR IGNORE INTO app_search_terms(term, app_id) VALUES(?1, ?2)";
constexpr const char *kMakeClientKey = "INSERT OR IGNORE INTO client_key(id, secret) VALUES(1, ?1)";
constexpr const char *kClientKey = "SELECT secret FROM client_key WHERE id = 1";

// A real write at every open: a file that cannot take it is refused before the service starts listening.
constexpr const char *kProveWritable = "INSERT OR REPLACE INTO service_state(id, opened_at) VALUES(1, ?1)";

constexpr const char *kBundleIdOf = "SELECT bundle_id FROM apps WHERE app_id = ?1";
// The names stay as the first report gave them.
constexpr const char *kUpsertApp =
    "INSERT INTO apps(app_id, bundle_id, title, reported_at, first_reported_at) VALUES(?1, ?2, ?3, ?4, ?4) "
    "ON CONFLICT(app_id) DO UPDATE SET reported_at = excluded.reported_at";
constexpr const char *kCountAppSource = "INSERT OR IGNORE INTO app_sources(app_id, client) SELECT ?1, ?2 "
                                        "WHERE (SELECT COUNT(*) FROM app_sources WHERE app_id = ?1) < ?3";
constexpr const char *kCountVersionSource =
    "INSERT OR IGNORE INTO version_sources(app_id, external_id, client) SELECT ?1, ?2, ?3 "
    "WHERE (SELECT COUNT(*) FROM version_sources WHERE app_id = ?1 AND external_id = ?2) < ?4";
constexpr const char *kAppBytes =
    "SELECT (SELECT COALESCE(SUM(length(CAST(display AS BLOB)) + 64), 0) FROM versions WHERE app_id = ?1) + "
    "(SELECT COALESCE(SUM(length(CAST(bundle_id AS BLOB)) + length(CAST(title AS BLOB)) + 64), 0) FROM apps "
    "WHERE app_id = ?1)";
constexpr const char *kEvictLeastSupported =
    "DELETE FROM versions WHERE app_id = ?1 AND external_id IN (SELECT v.external_id FROM versions v "
    "WHERE v.app_id = ?1 ORDER BY (SELECT COUNT(*) FROM version_sources s WHERE s.app_id = v.app_id AND "
    "s.external_id = v.external_id), v.reported_at, v.external_id LIMIT ?2)";
constexpr const char *kDropOrphanSources = "DELETE FROM version_sources WHERE app_id = ?1 AND external_id NOT IN "
                                           "(SELECT external_id FROM versions WHERE app_id = ?1)";
constexpr const char *kVersionBytes = "SELECT total FROM version_bytes WHERE id = 1";
constexpr const char *kSetVersionBytes = "UPDATE version_bytes SET total = ?1 WHERE id = 1";
constexpr const char *kUpsertVersion =
    "INSERT INTO versions(app_id, external_id, display, reported_at, first_reported_at) VALUES(?1, ?2, ?3, ?4, ?4) "
    "ON CONFLICT(app_id, external_id) DO UPDATE SET "
    "display = CASE WHEN versions.display = '' THEN excluded.display ELSE versions.display END, "
    "reported_at = excluded.reported_at";
constexpr const char *kSelectVersions =
    "SELECT display, external_id FROM versions WHERE app_id = ?1 ORDER BY external_id DESC";
constexpr const char *kSelectAppSummary =
    "SELECT a.app_id, a.bundle_id, a.title, (SELECT v.display FROM versions v WHERE v.app_id = a.app_id "
    "AND v.display <> '' ORDER BY v.external_id DESC LIMIT 1), a.first_reported_at, a.reported_at FROM apps a ";
constexpr const char *kMostRecentFirst = " ORDER BY a.reported_at DESC, a.app_id DESC LIMIT ?";
constexpr const char *kSelectVersionHistory = "SELECT display, external_id, first_reported_at, reported_at "
                                              "FROM versions WHERE app_id = ?1 ORDER BY external_id DESC";
constexpr const char *kCountApps = "SELECT COUNT(*) FROM apps";
constexpr const char *kCountVersions = "SELECT COUNT(*) FROM versions";
constexpr const char *kBestSupportedByBundleId =
    "WHERE a.bundle_id = ?1 ORDER BY (SELECT COUNT(*) FROM app_sources s WHERE s.app_id = a.app_id) DESC, "
    "a.app_id LIMIT 1";
constexpr const char *kCountAppVersions = "SELECT COUNT(*) FROM versions WHERE app_id = ?1";
constexpr const char *kInsertEvent = "INSERT INTO search_events(query, body, received_at) VALUES(?1, ?2, ?3)";
constexpr const char *kCountCutoff = "SELECT MAX(id) - ?1 FROM search_events";
constexpr const char *kBytesUpTo =
    "SELECT COALESCE(SUM(length(CAST(query AS BLOB)) + length(CAST(body AS BLOB))), 0) FROM search_events "
    "WHERE id <= ?1";
constexpr const char *kOldestEvents =
    "SELECT id, length(CAST(query AS BLOB)) + length(CAST(body AS BLOB)) FROM search_events ORDER BY id";
constexpr const char *kDeleteEventsUpTo = "DELETE FROM search_events WHERE id <= ?1";
constexpr const char *kEventBytes = "SELECT total FROM search_event_bytes WHERE id = 1";
constexpr const char *kSetEventBytes = "UPDATE search_event_bytes SET total = ?1 WHERE id = 1";
constexpr const char *kCountEvents = "SELECT COUNT(*) FROM search_events";

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Error storageFailure(std::string reason) {
    return fail(ErrorCode::StorageFailed, std::move(reason));
}

// Binds a text parameter that outlives the statement's step.
void bindText(sqlite3_stmt *statement, int index, const std::string &text) {
    sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

std::string columnText(sqlite3_stmt *statement, int column) {
    const auto *text = sqlite3_column_text(statement, column);
    return text != nullptr ? std::string(reinterpret_cast<const char *>(text)) : std::string();
}

Result<void> indexAppsForSearch(SqliteStorage::Connection &db);

} // namespace

// One database connection with its prepared statements, used by one thread at a time.
class SqliteStorage::Connection {
  public:
    ~Connection() {
        for (auto &[sql, statement] : statements_) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(db_);
    }

    static Result<std::unique_ptr<Connection>> open(const std::string &path, bool writer, int busyTimeout) {
        auto connection = std::unique_ptr<Connection>(new Connection());
        const int flags =
            SQLITE_OPEN_NOMUTEX | (writer ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY);
        if (sqlite3_open_v2(path.c_str(), &connection->db_, flags, nullptr) != SQLITE_OK) {
            return storageFailure(path + ": " +
                                  (connection->db_ != nullptr ? sqlite3_errmsg(connection->db_) : "cannot open"));
        }
        sqlite3_busy_timeout(connection->db_, busyTimeout);
        // SQLite quietly opens a file it may not write read-only; a writer that cannot write is no writer.
        if (writer && sqlite3_db_readonly(connection->db_, "main") == 1) {
            return storageFailure(path + ": the file is read-only");
        }
        const char *setup = writer ? "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;"
                                   : "PRAGMA query_only=ON; PRAGMA mmap_size=268435456;";
        if (auto prepared = connection->execute(setup); !prepared) {
            return storageFailure(path + ": " + prepared.error().describe());
        }
        if (writer) {
            if (auto proven = connection->proveWritable(); !proven) {
                return storageFailure(path + ": cannot write: " + proven.error().describe());
            }
        }
        return connection;
    }

    Result<void> execute(const char *sql) {
        char *message = nullptr;
        if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
            std::string reason = message != nullptr ? message : "statement failed";
            sqlite3_free(message);
            return storageFailure(std::move(reason));
        }
        return {};
    }

    // Runs the work in one write transaction: committed when it succeeds, rolled back when it or the commit fails.
    // The write lock is taken at the start, so the work never meets another writer half-way.
    template <typename Work> Result<void> inTransaction(Work &&work) {
        return runInTransaction(*this, "BEGIN IMMEDIATE", std::forward<Work>(work));
    }

    // Brings the schema up to date and records the opening, in one transaction.
    Result<void> proveWritable() {
        return inTransaction([this]() -> Result<void> {
            if (auto upgraded = upgradeSchema(); !upgraded) {
                return upgraded;
            }
            sqlite3_stmt *key = prepare(kMakeClientKey);
            const std::string secret = randomSecret();
            if (key == nullptr) {
                return storageFailure(lastError());
            }
            bindText(key, 1, secret);
            if (sqlite3_step(key) != SQLITE_DONE) {
                return storageFailure(lastError());
            }
            sqlite3_stmt *opened = prepare(kProveWritable);
            if (opened == nullptr) {
                return storageFailure(lastError());
            }
            sqlite3_bind_int64(opened, 1, nowSeconds());
            if (sqlite3_step(opened) != SQLITE_DONE) {
                return storageFailure(lastError());
            }
            return {};
        });
    }

    // Runs the schema changes the file has not had yet; inside proveWritable's transaction.
    Result<void> upgradeSchema() {
        if (auto made = execute(kSchemaVersionTable); !made) {
            return made;
        }
        const auto applied = integer(kSchemaVersion);
        if (!applied) {
            return applied.error();
        }
        const auto pending = pendingSchemaChanges(*applied);
        if (!pending) {
            return pending.error();
        }
        for (const auto &change : *pending) {
            if (auto changed = execute(change.sqlite); !changed) {
                return changed;
            }
        }
        if (*applied < kSearchWordsChange) {
            if (auto indexed = indexAppsForSearch(*this); !indexed) {
                return indexed;
            }
        }
        return pending->empty() ? Result<void>() : execute(recordSchemaVersion(schemaChanges().size()).c_str());
    }

    // The single integer a statement yields, bound to at most one parameter.
    Result<std::int64_t> integer(const char *sql, std::optional<std::int64_t> parameter = std::nullopt) {
        sqlite3_stmt *statement = prepare(sql);
        if (statement == nullptr) {
            return storageFailure(lastError());
        }
        if (parameter) {
            sqlite3_bind_int64(statement, 1, *parameter);
        }
        if (sqlite3_step(statement) != SQLITE_ROW) {
            return storageFailure(lastError());
        }
        const std::int64_t value = sqlite3_column_int64(statement, 0);
        sqlite3_reset(statement);
        return value;
    }

    // The single text a statement without parameters yields.
    Result<std::string> singleText(const char *sql) {
        sqlite3_stmt *statement = prepare(sql);
        if (statement == nullptr || sqlite3_step(statement) != SQLITE_ROW) {
            return storageFailure(lastError());
        }
        std::string text = columnText(statement, 0);
        sqlite3_reset(statement);
        return text;
    }

    // Undoes the open transaction; the failure that led here is the one worth reporting.
    void rollBack() { (void)execute("ROLLBACK"); }

    // The cached prepared statement for the SQL text, reset and unbound; nullptr on failure.
    sqlite3_stmt *prepare(const std::string &sql) {
        auto found = statements_.find(sql);
        if (found == statements_.end()) {
            sqlite3_stmt *statement = nullptr;
            if (sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
                return nullptr;
            }
            found = statements_.emplace(sql, statement).first;
        }
        sqlite3_reset(found->second);
        sqlite3_clear_bindings(found->second);
        return found->second;
    }

    std::string lastError() const { return sqlite3_errmsg(db_); }

  private:
    Connection() = default;
    sqlite3 *db_ = nullptr;
    std::map<std::string, sqlite3_stmt *> statements_;
};

class SqliteStorage::Lease {
  public:
    explicit Lease(SqliteStorage &storage) : storage_(storage), connection_(storage.acquireReader()) {}
    ~Lease() { storage_.releaseReader(connection_); }
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;
    Connection &operator*() const { return *connection_; }

  private:
    SqliteStorage &storage_;
    Connection *connection_;
};

namespace {

Result<std::vector<AppSummary>> readSummaries(SqliteStorage::Connection &connection, sqlite3_stmt *statement) {
    std::vector<AppSummary> apps;
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        apps.push_back(AppSummary{sqlite3_column_int64(statement, 0), columnText(statement, 1),
                                  columnText(statement, 2), columnText(statement, 3),
                                  sqlite3_column_int64(statement, 4), sqlite3_column_int64(statement, 5)});
    }
    if (step != SQLITE_DONE) {
        return storageFailure(connection.lastError());
    }
    return apps;
}

Result<void> indexAppForSearch(SqliteStorage::Connection &db, std::int64_t appId, std::string_view bundleId,
                               std::string_view title) {
    for (const auto &term : searchTermsOf(bundleId, title)) {
        sqlite3_stmt *insert = db.prepare(kInsertSearchTerm);
        if (insert == nullptr) {
            return storageFailure(db.lastError());
        }
        bindText(insert, 1, term);
        sqlite3_bind_int64(insert, 2, appId);
        if (sqlite3_step(insert) != SQLITE_DONE) {
            return storageFailure(db.lastError());
        }
    }
    return {};
}

// The words of every app stored before apps were searchable; runs once, inside the migration that adds the index.
Result<void> indexAppsForSearch(SqliteStorage::Connection &db) {
    struct Names {
        std::int64_t appId;
        std::string bundleId;
        std::string title;
    };
    std::vector<Names> apps;
    sqlite3_stmt *all = db.prepare(kAppsToIndex);
    if (all == nullptr) {
        return storageFailure(db.lastError());
    }
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(all)) == SQLITE_ROW) {
        apps.push_back(Names{sqlite3_column_int64(all, 0), columnText(all, 1), columnText(all, 2)});
    }
    sqlite3_reset(all);
    if (step != SQLITE_DONE) {
        return storageFailure(db.lastError());
    }
    for (const auto &app : apps) {
        if (auto indexed = indexAppForSearch(db, app.appId, app.bundleId, app.title); !indexed) {
            return indexed;
        }
    }
    return {};
}

// One range of the term index per word, intersected; an all-digit query adds the app with that identifier.
std::string searchStatement(std::size_t words, bool byIdentifier) {
    std::string sql = std::string(kSelectAppSummary) + "WHERE a.app_id IN (";
    for (std::size_t word = 0; word < words; ++word) {
        sql += word == 0 ? "" : " INTERSECT ";
        sql += "SELECT app_id FROM app_search_terms WHERE term >= ?";
        sql += std::to_string(2 * word + 1);
        sql += " AND term < ?";
        sql += std::to_string(2 * word + 2);
    }
    if (byIdentifier) {
        sql += " UNION SELECT app_id FROM apps WHERE app_id = ?" + std::to_string(2 * words + 1);
    }
    return sql + ")" + kMostRecentFirst;
}

} // namespace

SqliteStorage::SqliteStorage(SqliteOptions options) : options_(std::move(options)) {}

SqliteStorage::~SqliteStorage() = default;

Result<std::unique_ptr<SqliteStorage>> SqliteStorage::open(const SqliteOptions &options) {
    if (options.readers == 0) {
        return storageFailure("no reader connections");
    }
    auto storage = std::unique_ptr<SqliteStorage>(new SqliteStorage(options));
    auto writer = Connection::open(options.path, true, options.busyTimeoutMilliseconds);
    if (!writer) {
        return writer.error();
    }
    auto key = (*writer)->singleText(kClientKey);
    if (!key) {
        return storageFailure(options.path + ": " + key.error().describe());
    }
    storage->clientKey_ = std::move(*key);
    struct stat opened {};
    if (::stat(options.path.c_str(), &opened) != 0) {
        return storageFailure(options.path + ": the file vanished while it was opened");
    }
    storage->fileDevice_ = opened.st_dev;
    storage->fileInode_ = opened.st_ino;
    storage->writer_ = std::move(*writer);
    for (std::size_t i = 0; i < options.readers; ++i) {
        auto reader = Connection::open(options.path, false, options.busyTimeoutMilliseconds);
        if (!reader) {
            return reader.error();
        }
        storage->idleReaders_.push_back(reader->get());
        storage->readers_.push_back(std::move(*reader));
    }
    return storage;
}

Result<SqliteStorage::Connection *> SqliteStorage::writerLocked() {
    // A file deleted or replaced under the service would take writes that vanish, or start an empty database;
    // either way the data written so far is not where the next start looks. Writes stop until an operator acts.
    if (!sameFileAsOpened()) {
        if (!fileLost_.exchange(true)) {
            std::fprintf(stderr, "qvdovrin serve: %s was deleted or replaced while the service ran; writes stop\n",
                         options_.path.c_str());
        }
        return storageFailure(options_.path + ": the file was deleted or replaced while the service ran");
    }
    if (!writer_) {
        auto reopened = Connection::open(options_.path, true, options_.busyTimeoutMilliseconds);
        if (!reopened) {
            return reopened.error();
        }
        writer_ = std::move(*reopened);
    }
    return writer_.get();
}

SqliteStorage::Connection *SqliteStorage::acquireReader() {
    std::unique_lock<std::mutex> lock(readersMutex_);
    readerFree_.wait(lock, [this] { return !idleReaders_.empty(); });
    Connection *reader = idleReaders_.back();
    idleReaders_.pop_back();
    return reader;
}

void SqliteStorage::releaseReader(Connection *reader) {
    {
        const std::lock_guard<std::mutex> lock(readersMutex_);
        idleReaders_.push_back(reader);
    }
    readerFree_.notify_one();
}

Result<void> SqliteStorage::recordReport(const VersionReport &report) {
    if (static_cast<std::int64_t>(report.versions.size()) > options_.maxVersionsPerApp) {
        return fail(ErrorCode::TooManyVersions,
                    "a report carries at most " + std::to_string(options_.maxVersionsPerApp) + " versions here");
    }
    const std::lock_guard<std::mutex> lock(writerMutex_);
    const auto writer = writerLocked();
    if (!writer) {
        return writer.error();
    }
    Connection &db = **writer;
    return writeLocked(db, [&] { return recordLocked(db, report); });
}

// A write on the writer in one transaction. A database failure drops the writer: a connection that met a read-only
// or vanished file stays that way, and the next write opens the file as it is then.
Result<void> SqliteStorage::writeLocked(Connection &db, const std::function<Result<void>()> &work) {
    Result<void> outcome = db.inTransaction(work);
    if (!outcome && outcome.error().code == ErrorCode::StorageFailed) {
        writer_.reset();
    }
    return outcome;
}

// The report's writes inside the open transaction; see recordReport.
Result<void> SqliteStorage::recordLocked(Connection &db, const VersionReport &report) {
    const std::int64_t now = nowSeconds();
    sqlite3_stmt *known = db.prepare(kBundleIdOf);
    if (known == nullptr) {
        return storageFailure(db.lastError());
    }
    sqlite3_bind_int64(known, 1, report.appId);
    const int found = sqlite3_step(known);
    const std::optional<std::string> knownBundleId =
        found == SQLITE_ROW ? std::optional<std::string>(columnText(known, 0)) : std::nullopt;
    sqlite3_reset(known);
    if (found != SQLITE_ROW && found != SQLITE_DONE) {
        return storageFailure(db.lastError());
    }
    if (knownBundleId && *knownBundleId != report.bundleId) {
        return fail(ErrorCode::Conflict,
                    "app " + std::to_string(report.appId) + " is " + *knownBundleId + ", not " + report.bundleId);
    }
    const auto before = db.integer(kAppBytes, report.appId);
    if (!before) {
        return before.error();
    }
    bool ok = false;
    if (sqlite3_stmt *app = db.prepare(kUpsertApp)) {
        sqlite3_bind_int64(app, 1, report.appId);
        bindText(app, 2, report.bundleId);
        bindText(app, 3, report.title);
        sqlite3_bind_int64(app, 4, now);
        ok = sqlite3_step(app) == SQLITE_DONE;
    }
    if (sqlite3_stmt *source = ok ? db.prepare(kCountAppSource) : nullptr) {
        sqlite3_bind_int64(source, 1, report.appId);
        bindText(source, 2, report.client);
        sqlite3_bind_int64(source, 3, StorageLimits::kCountedClients);
        ok = sqlite3_step(source) == SQLITE_DONE;
    }
    if (ok && !knownBundleId) {
        if (auto indexed = indexAppForSearch(db, report.appId, report.bundleId, report.title); !indexed) {
            return indexed;
        }
    }
    for (const auto &version : report.versions) {
        sqlite3_stmt *upsert = ok ? db.prepare(kUpsertVersion) : nullptr;
        if (upsert == nullptr) {
            ok = false;
            break;
        }
        sqlite3_bind_int64(upsert, 1, report.appId);
        sqlite3_bind_int64(upsert, 2, version.externalId);
        bindText(upsert, 3, version.display);
        sqlite3_bind_int64(upsert, 4, now);
        ok = sqlite3_step(upsert) == SQLITE_DONE;
        sqlite3_stmt *source = ok ? db.prepare(kCountVersionSource) : nullptr;
        if (source == nullptr) {
            ok = false;
            break;
        }
        sqlite3_bind_int64(source, 1, report.appId);
        sqlite3_bind_int64(source, 2, version.externalId);
        bindText(source, 3, report.client);
        sqlite3_bind_int64(source, 4, StorageLimits::kCountedClients);
        ok = sqlite3_step(source) == SQLITE_DONE;
    }
    if (!ok) {
        return storageFailure(db.lastError());
    }
    // Counted after the upserts, so versions the app already holds cost nothing.
    const auto held = db.integer(kCountAppVersions, report.appId);
    if (!held) {
        return held.error();
    }
    if (*held > options_.maxVersionsPerApp) {
        sqlite3_stmt *evict = db.prepare(kEvictLeastSupported);
        sqlite3_stmt *orphans = evict != nullptr ? db.prepare(kDropOrphanSources) : nullptr;
        if (orphans == nullptr) {
            return storageFailure(db.lastError());
        }
        sqlite3_bind_int64(evict, 1, report.appId);
        sqlite3_bind_int64(evict, 2, *held - options_.maxVersionsPerApp);
        sqlite3_bind_int64(orphans, 1, report.appId);
        if (sqlite3_step(evict) != SQLITE_DONE || sqlite3_step(orphans) != SQLITE_DONE) {
            return storageFailure(db.lastError());
        }
    }
    const auto after = db.integer(kAppBytes, report.appId);
    const auto total = after ? db.integer(kVersionBytes) : Result<std::int64_t>(after.error());
    if (!total) {
        return total.error();
    }
    const std::int64_t grown = *after - *before;
    if (grown > 0 && *total + grown > options_.maxVersionBytes) {
        return fail(ErrorCode::StorageFull, "the service keeps " + std::to_string(options_.maxVersionBytes) +
                                                " bytes of versions and holds " + std::to_string(*total));
    }
    sqlite3_stmt *setTotal = db.prepare(kSetVersionBytes);
    if (setTotal == nullptr) {
        return storageFailure(db.lastError());
    }
    sqlite3_bind_int64(setTotal, 1, *total + grown);
    if (sqlite3_step(setTotal) != SQLITE_DONE) {
        return storageFailure(db.lastError());
    }
    return {};
}

Result<std::vector<StoredVersion>> SqliteStorage::versionsOf(std::int64_t appId) {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(kSelectVersions);
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    sqlite3_bind_int64(statement, 1, appId);
    std::vector<StoredVersion> versions;
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        versions.push_back(StoredVersion{columnText(statement, 0), sqlite3_column_int64(statement, 1)});
    }
    if (step != SQLITE_DONE) {
        return storageFailure((*lease).lastError());
    }
    sqlite3_reset(statement);
    return versions;
}

Result<std::vector<AppSummary>> SqliteStorage::appsWithId(std::int64_t appId) {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(std::string(kSelectAppSummary) + "WHERE a.app_id = ?1");
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    sqlite3_bind_int64(statement, 1, appId);
    auto result = readSummaries(*lease, statement);
    sqlite3_reset(statement);
    return result;
}

Result<std::vector<AppSummary>> SqliteStorage::appsWithBundleId(const std::string &bundleId) {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(std::string(kSelectAppSummary) + kBestSupportedByBundleId);
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    bindText(statement, 1, bundleId);
    auto result = readSummaries(*lease, statement);
    sqlite3_reset(statement);
    return result;
}

Result<std::vector<VersionHistory>> SqliteStorage::versionHistoryOf(std::int64_t appId) {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(kSelectVersionHistory);
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    sqlite3_bind_int64(statement, 1, appId);
    std::vector<VersionHistory> versions;
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        versions.push_back(VersionHistory{columnText(statement, 0), sqlite3_column_int64(statement, 1),
                                          sqlite3_column_int64(statement, 2), sqlite3_column_int64(statement, 3)});
    }
    sqlite3_reset(statement);
    if (step != SQLITE_DONE) {
        return storageFailure((*lease).lastError());
    }
    return versions;
}

Result<std::vector<AppSummary>> SqliteStorage::searchApps(const AppSearch &search, std::size_t limit) {
    const Lease lease(*this);
    sqlite3_stmt *statement =
        (*lease).prepare(searchStatement(search.words.size(), search.storeIdentifier.has_value()));
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    // Bound texts must outlive the steps.
    std::vector<std::string> bounds;
    bounds.reserve(search.words.size());
    int parameter = 1;
    for (const auto &word : search.words) {
        bindText(statement, parameter++, word);
        bindText(statement, parameter++, bounds.emplace_back(searchWordBound(word)));
    }
    if (search.storeIdentifier) {
        sqlite3_bind_int64(statement, parameter++, *search.storeIdentifier);
    }
    sqlite3_bind_int64(statement, parameter, static_cast<std::int64_t>(limit));
    auto result = readSummaries(*lease, statement);
    sqlite3_reset(statement);
    return result;
}

Result<std::vector<AppSummary>> SqliteStorage::recentlyReportedApps(std::size_t limit) {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(std::string(kSelectAppSummary) + kMostRecentFirst);
    if (statement == nullptr) {
        return storageFailure((*lease).lastError());
    }
    sqlite3_bind_int64(statement, 1, static_cast<std::int64_t>(limit));
    auto result = readSummaries(*lease, statement);
    sqlite3_reset(statement);
    return result;
}

Result<StorageTotals> SqliteStorage::totals() {
    const Lease lease(*this);
    const auto apps = (*lease).integer(kCountApps);
    const auto versions = apps ? (*lease).integer(kCountVersions) : apps;
    if (!versions) {
        return versions.error();
    }
    return StorageTotals{*apps, *versions};
}

Result<void> SqliteStorage::recordSearchEvent(const SearchEvent &event) {
    const std::lock_guard<std::mutex> lock(writerMutex_);
    const auto writer = writerLocked();
    if (!writer) {
        return writer.error();
    }
    Connection &db = **writer;
    return writeLocked(db, [&]() -> Result<void> {
        sqlite3_stmt *insert = db.prepare(kInsertEvent);
        if (insert == nullptr) {
            return storageFailure(db.lastError());
        }
        bindText(insert, 1, event.query);
        bindText(insert, 2, event.bodyJson);
        sqlite3_bind_int64(insert, 3, nowSeconds());
        if (sqlite3_step(insert) != SQLITE_DONE) {
            return storageFailure(db.lastError());
        }
        return trimSearchEvents(db, static_cast<std::int64_t>(event.query.size() + event.bodyJson.size()));
    });
}

// Drops the oldest events beyond the count cap, then beyond the byte budget, keeping the running byte total in
// step; the ids only ever grow, so "oldest" is "lowest id".
Result<void> SqliteStorage::trimSearchEvents(Connection &db, std::int64_t addedBytes) {
    auto total = db.integer(kEventBytes);
    if (!total) {
        return total.error();
    }
    std::int64_t bytes = *total + addedBytes;
    std::int64_t cutoff = 0;
    if (auto countCutoff = db.integer(kCountCutoff, options_.maxSearchEvents); !countCutoff) {
        return countCutoff.error();
    } else if (*countCutoff > 0) {
        auto dropped = db.integer(kBytesUpTo, *countCutoff);
        if (!dropped) {
            return dropped.error();
        }
        cutoff = *countCutoff;
        bytes -= *dropped;
    }
    if (bytes > options_.maxSearchEventBytes) {
        sqlite3_stmt *oldest = db.prepare(kOldestEvents);
        if (oldest == nullptr) {
            return storageFailure(db.lastError());
        }
        int step = SQLITE_ROW;
        while (bytes > options_.maxSearchEventBytes && (step = sqlite3_step(oldest)) == SQLITE_ROW) {
            const std::int64_t id = sqlite3_column_int64(oldest, 0);
            if (id > cutoff) {
                cutoff = id;
                bytes -= sqlite3_column_int64(oldest, 1);
            }
        }
        sqlite3_reset(oldest);
        if (step != SQLITE_ROW && step != SQLITE_DONE) {
            return storageFailure(db.lastError());
        }
    }
    if (cutoff > 0) {
        sqlite3_stmt *drop = db.prepare(kDeleteEventsUpTo);
        if (drop == nullptr) {
            return storageFailure(db.lastError());
        }
        sqlite3_bind_int64(drop, 1, cutoff);
        if (sqlite3_step(drop) != SQLITE_DONE) {
            return storageFailure(db.lastError());
        }
    }
    sqlite3_stmt *setTotal = db.prepare(kSetEventBytes);
    if (setTotal == nullptr) {
        return storageFailure(db.lastError());
    }
    sqlite3_bind_int64(setTotal, 1, bytes);
    if (sqlite3_step(setTotal) != SQLITE_DONE) {
        return storageFailure(db.lastError());
    }
    return {};
}

Result<void> SqliteStorage::ping() {
    if (fileLost_ || !sameFileAsOpened()) {
        return storageFailure(options_.path + ": the file was deleted or replaced while the service ran");
    }
    const Lease lease(*this);
    // Reading the schema makes SQLite look at the file itself, which a constant query would not.
    if (auto answered = (*lease).integer("SELECT count(*) FROM sqlite_master"); !answered) {
        return answered.error();
    }
    return {};
}

bool SqliteStorage::sameFileAsOpened() const {
    struct stat now {};
    return ::stat(options_.path.c_str(), &now) == 0 && now.st_dev == fileDevice_ && now.st_ino == fileInode_;
}

bool SqliteStorage::fileLost() const {
    return fileLost_;
}

Result<std::int64_t> SqliteStorage::versionBytes() {
    const Lease lease(*this);
    return (*lease).integer(kVersionBytes);
}

std::string SqliteStorage::clientKey() const {
    return clientKey_;
}

Result<std::int64_t> SqliteStorage::searchEventCount() {
    const Lease lease(*this);
    sqlite3_stmt *statement = (*lease).prepare(kCountEvents);
    if (statement == nullptr || sqlite3_step(statement) != SQLITE_ROW) {
        return storageFailure((*lease).lastError());
    }
    const std::int64_t count = sqlite3_column_int64(statement, 0);
    sqlite3_reset(statement);
    return count;
}

} // namespace qv::server
