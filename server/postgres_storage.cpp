// PostgreSQL storage of version reports and search events, shared safely by several service instances.
#include "server/postgres_storage.h"

#include <libpq-fe.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include "base/text.h"
#include "server/clients.h"
#include "server/schema.h"

namespace qv::server {

namespace {

// Held for the length of the migration transaction, so instances starting together migrate one after another.
constexpr const char *kMigrationLock = "SELECT pg_advisory_xact_lock(7423510982)";

struct Statement {
    const char *name;
    const char *sql;
};

// Prepared on every connection as it is made.
constexpr Statement kProveWritable{"prove_writable", "INSERT INTO service_state(id, opened_at) VALUES(1, $1) "
                                                     "ON CONFLICT(id) DO UPDATE SET opened_at = excluded.opened_at"};
constexpr Statement kMakeClientKey{"make_client_key", "INSERT INTO client_key(id, secret) VALUES(1, $1) "
                                                      "ON CONFLICT(id) DO NOTHING"};
constexpr Statement kClientKey{"client_key", "SELECT secret FROM client_key WHERE id = 1"};
// The names stay as the first report gave them; the row lock it takes orders two reports of one app, from any
// instance, one after the other.
constexpr Statement kUpsertApp{"upsert_app",
                               "INSERT INTO apps(app_id, bundle_id, title, reported_at, first_reported_at) "
                               "VALUES($1, $2, $3, $4, $4) "
                               "ON CONFLICT(app_id) DO UPDATE SET reported_at = excluded.reported_at "
                               "RETURNING bundle_id, xmax = 0"};
constexpr Statement kCountAppSource{"count_app_source",
                                    "INSERT INTO app_sources(app_id, client) SELECT $1, $2 "
                                    "WHERE (SELECT COUNT(*) FROM app_sources WHERE app_id = $1) < $3 "
                                    "ON CONFLICT DO NOTHING"};
constexpr Statement kCountVersionSource{
    "count_version_source",
    "INSERT INTO version_sources(app_id, external_id, client) SELECT $1, $2, $3 "
    "WHERE (SELECT COUNT(*) FROM version_sources WHERE app_id = $1 AND external_id = $2) < $4 ON CONFLICT DO NOTHING"};
constexpr Statement kAppBytes{
    "app_bytes", "SELECT (SELECT COALESCE(SUM(octet_length(display) + 64), 0) FROM versions WHERE app_id = $1) + "
                 "(SELECT COALESCE(SUM(octet_length(bundle_id) + octet_length(title) + 64), 0) FROM apps "
                 "WHERE app_id = $1)"};
constexpr Statement kEvictLeastSupported{
    "evict_least_supported",
    "DELETE FROM versions WHERE app_id = $1 AND external_id IN (SELECT v.external_id FROM versions v "
    "WHERE v.app_id = $1 ORDER BY (SELECT COUNT(*) FROM version_sources s WHERE s.app_id = v.app_id AND "
    "s.external_id = v.external_id), v.reported_at, v.external_id LIMIT $2)"};
constexpr Statement kDropOrphanSources{
    "drop_orphan_sources", "DELETE FROM version_sources s WHERE s.app_id = $1 AND NOT EXISTS "
                           "(SELECT 1 FROM versions v WHERE v.app_id = $1 AND v.external_id = s.external_id)"};
// Taking the totals row orders every instance's version writes, so the total stays exact.
constexpr Statement kLockVersionBytes{"lock_version_bytes", "SELECT total FROM version_bytes WHERE id = 1 FOR UPDATE"};
constexpr Statement kVersionBytes{"version_bytes", "SELECT total FROM version_bytes WHERE id = 1"};
constexpr Statement kSetVersionBytes{"set_version_bytes", "UPDATE version_bytes SET total = $1 WHERE id = 1"};
constexpr Statement kUpsertVersion{
    "upsert_version", "INSERT INTO versions(app_id, external_id, display, reported_at, first_reported_at) "
                      "VALUES($1, $2, $3, $4, $4) "
                      "ON CONFLICT(app_id, external_id) DO UPDATE SET "
                      "display = CASE WHEN versions.display = '' THEN excluded.display ELSE versions.display END, "
                      "reported_at = excluded.reported_at"};
constexpr Statement kCountAppVersions{"count_app_versions", "SELECT COUNT(*) FROM versions WHERE app_id = $1"};
constexpr Statement kSelectVersions{
    "select_versions", "SELECT display, external_id FROM versions WHERE app_id = $1 ORDER BY external_id DESC"};
#define QV_APP_SUMMARY                                                                                                 \
    "SELECT a.app_id, a.bundle_id, a.title, (SELECT v.display FROM versions v WHERE v.app_id = a.app_id "              \
    "AND v.display <> '' ORDER BY v.external_id DESC LIMIT 1), a.first_reported_at, a.reported_at FROM apps a "
constexpr Statement kAppsWithId{"apps_with_id", QV_APP_SUMMARY "WHERE a.app_id = $1"};
constexpr Statement kAppsWithBundleId{"apps_with_bundle_id", QV_APP_SUMMARY
                                      "WHERE a.bundle_id = $1 ORDER BY "
                                      "(SELECT COUNT(*) FROM app_sources s WHERE s.app_id = a.app_id) DESC, "
                                      "a.app_id LIMIT 1"};
// Every word ($1, with its range's end in $2) must begin one of the app's words; $3, when not null, is a store
// identifier that finds its app as well.
constexpr Statement kSearchApps{
    "search_apps",
    QV_APP_SUMMARY "WHERE a.app_id IN (SELECT t.app_id FROM unnest($1::text[], $2::text[]) AS w(low, high) "
                   "JOIN app_search_terms t ON t.term >= w.low AND t.term < w.high GROUP BY t.app_id "
                   "HAVING COUNT(DISTINCT w.low) = cardinality($1::text[]) UNION ALL SELECT $3::bigint) "
                   "ORDER BY a.reported_at DESC, a.app_id DESC LIMIT $4"};
constexpr Statement kRecentApps{"recent_apps", QV_APP_SUMMARY "ORDER BY a.reported_at DESC, a.app_id DESC LIMIT $1"};
#undef QV_APP_SUMMARY
constexpr Statement kSelectVersionHistory{"select_version_history",
                                          "SELECT display, external_id, first_reported_at, reported_at FROM versions "
                                          "WHERE app_id = $1 ORDER BY external_id DESC"};
constexpr Statement kTotals{"totals", "SELECT (SELECT COUNT(*) FROM apps), (SELECT COUNT(*) FROM versions)"};
constexpr Statement kInsertSearchTerm{"insert_search_term", "INSERT INTO app_search_terms(term, app_id) VALUES($1, $2) "
                                                            "ON CONFLICT DO NOTHING"};
// Taking the totals row first makes every instance's event writes queue up behind one another, so ids grow in the
// order events are kept and the totals stay exact.
constexpr Statement kLockEventTotals{"lock_event_totals",
                                     "SELECT events, bytes FROM search_event_totals WHERE id = 1 FOR UPDATE"};
constexpr Statement kInsertEvent{"insert_event",
                                 "INSERT INTO search_events(query, body, bytes, received_at) VALUES($1, $2, $3, $4)"};
// The newest event that has to go so that at least $1 events and $2 bytes are dropped, oldest first.
constexpr Statement kTrimCutoff{"trim_cutoff",
                                "SELECT id, n, dropped FROM (SELECT id, row_number() OVER (ORDER BY id) AS n, "
                                "SUM(bytes) OVER (ORDER BY id) AS dropped FROM search_events) running "
                                "WHERE n >= $1 AND dropped >= $2 ORDER BY id LIMIT 1"};
constexpr Statement kDeleteEventsUpTo{"delete_events_up_to", "DELETE FROM search_events WHERE id <= $1"};
constexpr Statement kSetEventTotals{"set_event_totals",
                                    "UPDATE search_event_totals SET events = $1, bytes = $2 WHERE id = 1"};
constexpr Statement kCountEvents{"count_events", "SELECT COUNT(*) FROM search_events"};

constexpr Statement kStatements[] = {kProveWritable,
                                     kUpsertApp,
                                     kUpsertVersion,
                                     kCountAppVersions,
                                     kSelectVersions,
                                     kAppsWithId,
                                     kAppsWithBundleId,
                                     kLockEventTotals,
                                     kInsertEvent,
                                     kTrimCutoff,
                                     kDeleteEventsUpTo,
                                     kSetEventTotals,
                                     kCountEvents,
                                     kMakeClientKey,
                                     kClientKey,
                                     kCountAppSource,
                                     kCountVersionSource,
                                     kAppBytes,
                                     kEvictLeastSupported,
                                     kDropOrphanSources,
                                     kLockVersionBytes,
                                     kVersionBytes,
                                     kSetVersionBytes,
                                     kSearchApps,
                                     kRecentApps,
                                     kSelectVersionHistory,
                                     kTotals,
                                     kInsertSearchTerm};

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Error storageFailure(std::string reason) {
    return fail(ErrorCode::StorageFailed, std::move(reason));
}

// libpq's messages span lines ("…failed: …\n\tIs the server running…"); a log line wants them on one.
std::string oneLine(const char *message) {
    std::string line;
    bool space = false;
    for (const char *c = message; c != nullptr && *c != '\0'; ++c) {
        const bool blank = *c == '\n' || *c == '\r' || *c == '\t' || *c == ' ';
        if (blank) {
            space = !line.empty();
            continue;
        }
        if (space) {
            line += ' ';
            space = false;
        }
        line += *c;
    }
    return line.empty() ? "unknown failure" : line;
}

// A query result, cleared when it goes out of scope.
class QueryResult {
  public:
    explicit QueryResult(PGresult *result) : result_(result) {}
    ~QueryResult() { PQclear(result_); }
    QueryResult(const QueryResult &) = delete;
    QueryResult &operator=(const QueryResult &) = delete;

    bool succeeded() const {
        const auto status = PQresultStatus(result_);
        return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
    }
    int rows() const { return PQntuples(result_); }
    std::string text(int row, int column) const { return PQgetvalue(result_, row, column); }
    // The server writes integers in plain decimal; anything else (a NULL's empty text) reads as 0.
    std::int64_t integer(int row, int column) const {
        return strictInteger(PQgetvalue(result_, row, column), std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max())
            .valueOr(0);
    }
    bool isNull(int row, int column) const { return PQgetisnull(result_, row, column) == 1; }

  private:
    PGresult *result_;
};

} // namespace

bool isPostgresUrl(const std::string &database) {
    return database.rfind("postgresql://", 0) == 0 || database.rfind("postgres://", 0) == 0;
}

std::string withoutPassword(const std::string &url) {
    if (url.find("password=") == std::string::npos && url.find("://") == std::string::npos) {
        return url; // a file name, or a key=value string without a password
    }
    if (!isPostgresUrl(url)) {
        // key=value form: drop the password pair.
        std::string kept;
        std::size_t start = 0;
        while (start < url.size()) {
            std::size_t end = url.find(' ', start);
            end = end == std::string::npos ? url.size() : end;
            const std::string pair = url.substr(start, end - start);
            if (!pair.empty() && pair.rfind("password=", 0) != 0) {
                kept += (kept.empty() ? "" : " ") + pair;
            }
            start = end + 1;
        }
        return kept;
    }
    std::string redacted = url;
    const std::size_t authority = redacted.find("://") + 3;
    const std::size_t authorityEnd = std::min(redacted.find_first_of("/?", authority), redacted.size());
    const std::size_t at = redacted.rfind('@', authorityEnd);
    if (at != std::string::npos && at >= authority) {
        const std::size_t colon = redacted.find(':', authority);
        if (colon < at) {
            redacted.erase(colon, at - colon);
        }
    }
    const std::size_t queryStart = redacted.find('?');
    if (queryStart == std::string::npos) {
        return redacted;
    }
    std::string query;
    std::size_t start = queryStart + 1;
    while (start <= redacted.size()) {
        std::size_t end = redacted.find('&', start);
        end = end == std::string::npos ? redacted.size() : end;
        const std::string parameter = redacted.substr(start, end - start);
        if (!parameter.empty() && parameter.rfind("password=", 0) != 0) {
            query += (query.empty() ? "" : "&") + parameter;
        }
        start = end + 1;
    }
    return redacted.substr(0, queryStart) + (query.empty() ? "" : "?" + query);
}

// One server connection with every statement prepared, used by one thread at a time.
class PostgresStorage::Connection {
  public:
    ~Connection() { PQfinish(db_); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    static Result<std::unique_ptr<Connection>> open(const std::string &url) {
        auto connection = std::unique_ptr<Connection>(new Connection(PQconnectdb(url.c_str())));
        if (connection->db_ == nullptr) {
            return storageFailure("out of memory");
        }
        if (PQstatus(connection->db_) != CONNECTION_OK) {
            return storageFailure(connection->lastError());
        }
        // Notices ("already exists, skipping") are the schema work's business, not the service log's.
        PQsetNoticeProcessor(
            connection->db_, [](void *, const char *) {}, nullptr);
        return connection;
    }

    // Prepares every statement; the tables they name must exist by now.
    Result<void> prepareAll() {
        for (const auto &statement : kStatements) {
            const QueryResult prepared(PQprepare(db_, statement.name, statement.sql, 0, nullptr));
            if (!prepared.succeeded()) {
                return storageFailure(std::string(statement.name) + ": " + lastError());
            }
        }
        return {};
    }

    bool lost() const { return PQstatus(db_) != CONNECTION_OK; }

    Result<void> execute(const char *sql) {
        auto result = plain(sql);
        if (!result) {
            return result.error();
        }
        return {};
    }

    // An unprepared statement's rows: for the schema work that runs before the tables exist.
    Result<std::unique_ptr<QueryResult>> plain(const char *sql) {
        auto result = std::make_unique<QueryResult>(PQexec(db_, sql));
        if (!result->succeeded()) {
            return storageFailure(lastError());
        }
        return result;
    }

    // An unprepared statement with text parameters, for the schema work.
    Result<std::unique_ptr<QueryResult>> plainWith(const char *sql, const std::vector<std::string> &parameters) {
        std::vector<const char *> values;
        values.reserve(parameters.size());
        for (const auto &parameter : parameters) {
            values.push_back(parameter.c_str());
        }
        auto result = std::make_unique<QueryResult>(
            PQexecParams(db_, sql, static_cast<int>(values.size()), nullptr, values.data(), nullptr, nullptr, 0));
        if (!result->succeeded()) {
            return storageFailure(lastError());
        }
        return result;
    }

    // Runs a prepared statement with text parameters; the result is checked by the caller.
    std::unique_ptr<QueryResult> run(const Statement &statement, const std::vector<std::string> &parameters) {
        std::vector<const char *> values;
        values.reserve(parameters.size());
        for (const auto &parameter : parameters) {
            values.push_back(parameter.c_str());
        }
        return std::make_unique<QueryResult>(
            PQexecPrepared(db_, statement.name, static_cast<int>(values.size()), values.data(), nullptr, nullptr, 0));
    }

    // A prepared statement's rows for raw parameter values, where a null pointer is SQL NULL.
    Result<std::unique_ptr<QueryResult>> queryValues(const Statement &statement,
                                                     const std::vector<const char *> &values) {
        auto result = std::make_unique<QueryResult>(
            PQexecPrepared(db_, statement.name, static_cast<int>(values.size()), values.data(), nullptr, nullptr, 0));
        if (!result->succeeded()) {
            return storageFailure(std::string(statement.name) + ": " + lastError());
        }
        return result;
    }

    // The statement's rows, or StorageFailed with the server's reason.
    Result<std::unique_ptr<QueryResult>> query(const Statement &statement, const std::vector<std::string> &parameters) {
        auto result = run(statement, parameters);
        if (!result->succeeded()) {
            return storageFailure(std::string(statement.name) + ": " + lastError());
        }
        return result;
    }

    Result<std::int64_t> integer(const Statement &statement, const std::vector<std::string> &parameters) {
        auto result = query(statement, parameters);
        if (!result) {
            return result.error();
        }
        if ((*result)->rows() != 1) {
            return storageFailure(std::string(statement.name) + ": no row");
        }
        return (*result)->integer(0, 0);
    }

    // Runs the work in one transaction: committed when it succeeds, rolled back when it or the commit fails.
    template <typename Work> Result<void> inTransaction(Work &&work) {
        return runInTransaction(*this, "BEGIN", std::forward<Work>(work));
    }

    // Undoes the open transaction; the failure that led here is the one worth reporting.
    void rollBack() { (void)execute("ROLLBACK"); }

    std::string lastError() const { return oneLine(PQerrorMessage(db_)); }

  private:
    explicit Connection(PGconn *db) : db_(db) {}
    PGconn *db_;
};

namespace {

Result<void> indexAppForSearch(PostgresStorage::Connection &db, const std::string &appId, std::string_view bundleId,
                               std::string_view title, const char *insertTerm) {
    for (const auto &term : searchTermsOf(bundleId, title)) {
        const std::vector<std::string> parameters{term, appId};
        auto inserted =
            insertTerm != nullptr ? db.plainWith(insertTerm, parameters) : db.query(kInsertSearchTerm, parameters);
        if (!inserted) {
            return inserted.error();
        }
    }
    return {};
}

// The words of every app stored before apps were searchable; runs inside the migration that adds the index, before
// any statement is prepared.
Result<void> indexAppsForSearch(PostgresStorage::Connection &db) {
    auto apps = db.plain("SELECT app_id, bundle_id, title FROM apps");
    if (!apps) {
        return apps.error();
    }
    for (int row = 0; row < (*apps)->rows(); ++row) {
        if (auto indexed = indexAppForSearch(db, (*apps)->text(row, 0), (*apps)->text(row, 1), (*apps)->text(row, 2),
                                             kInsertSearchTerm.sql);
            !indexed) {
            return indexed;
        }
    }
    return {};
}

// Runs the schema changes the database has not had yet; inside migrate's transaction, under the migration lock.
Result<void> upgradeSchema(PostgresStorage::Connection &db) {
    if (auto made = db.execute(kSchemaVersionTable); !made) {
        return made;
    }
    auto current = db.plain(kSchemaVersion);
    if (!current) {
        return current.error();
    }
    const std::int64_t applied = (*current)->integer(0, 0);
    const auto pending = pendingSchemaChanges(applied);
    if (!pending) {
        return pending.error();
    }
    for (const auto &change : *pending) {
        if (auto changed = db.execute(change.postgres); !changed) {
            return changed;
        }
    }
    if (applied < kSearchWordsChange) {
        if (auto indexed = indexAppsForSearch(db); !indexed) {
            return indexed;
        }
    }
    return pending->empty() ? Result<void>() : db.execute(recordSchemaVersion(schemaChanges().size()).c_str());
}

// Brings the schema up to date and records the opening, in one transaction under the migration lock.
Result<void> migrate(PostgresStorage::Connection &db) {
    return db.inTransaction([&db]() -> Result<void> {
        if (auto locked = db.execute(kMigrationLock); !locked) {
            return locked;
        }
        if (auto upgraded = upgradeSchema(db); !upgraded) {
            return upgraded;
        }
        if (auto prepared = db.prepareAll(); !prepared) {
            return prepared;
        }
        if (auto made = db.query(kMakeClientKey, {randomSecret()}); !made) {
            return made.error();
        }
        // A real write at every open: a database that cannot take it is refused before the service listens.
        auto proven = db.query(kProveWritable, {std::to_string(nowSeconds())});
        return proven ? Result<void>() : Result<void>(proven.error());
    });
}

Result<std::vector<AppSummary>> readSummaries(const QueryResult &rows) {
    std::vector<AppSummary> apps;
    apps.reserve(static_cast<std::size_t>(rows.rows()));
    for (int row = 0; row < rows.rows(); ++row) {
        apps.push_back(AppSummary{rows.integer(row, 0), rows.text(row, 1), rows.text(row, 2),
                                  rows.isNull(row, 3) ? std::string() : rows.text(row, 3), rows.integer(row, 4),
                                  rows.integer(row, 5)});
    }
    return apps;
}

} // namespace

class PostgresStorage::Lease {
  public:
    explicit Lease(PostgresStorage &storage) : storage_(storage), slot_(storage.acquire()) {}
    ~Lease() { storage_.release(std::move(slot_)); }
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;

    // The connection, made again first when it was never made or has been lost.
    Result<Connection *> connection() { return storage_.connected(slot_); }
    // One statement on the leased connection, outside any transaction.
    Result<std::unique_ptr<QueryResult>> query(const Statement &statement, const std::vector<std::string> &parameters) {
        auto leased = connection();
        if (!leased) {
            return leased.error();
        }
        auto rows = (*leased)->query(statement, parameters);
        if (!rows) {
            checkAfterFailure();
        }
        return rows;
    }
    // The work in one transaction on the leased connection.
    template <typename Work> Result<void> inTransaction(Work &&work) {
        auto leased = connection();
        if (!leased) {
            return leased.error();
        }
        Connection &db = **leased;
        Result<void> outcome = db.inTransaction([&] { return work(db); });
        if (!outcome) {
            checkAfterFailure();
        }
        return outcome;
    }
    // A connection that failed mid-call and lost its server is made afresh on its next lease.
    void checkAfterFailure() {
        if (slot_ && slot_->lost()) {
            slot_.reset();
        }
    }

  private:
    PostgresStorage &storage_;
    std::unique_ptr<Connection> slot_;
};

PostgresStorage::PostgresStorage(PostgresOptions options) : options_(std::move(options)) {}

PostgresStorage::~PostgresStorage() = default;

Result<std::unique_ptr<PostgresStorage>> PostgresStorage::open(const PostgresOptions &options) {
    const std::string shown = withoutPassword(options.url);
    if (options.connections == 0) {
        return storageFailure(shown + ": no connections");
    }
    auto first = Connection::open(options.url);
    if (!first) {
        return storageFailure(shown + ": " + first.error().detail);
    }
    if (auto migrated = migrate(**first); !migrated) {
        return storageFailure(shown + ": " + migrated.error().detail);
    }
    auto key = (*first)->query(kClientKey, {});
    if (!key || (*key)->rows() != 1) {
        return storageFailure(shown + ": the client key is missing");
    }
    auto storage = std::unique_ptr<PostgresStorage>(new PostgresStorage(options));
    storage->clientKey_ = (*key)->text(0, 0);
    storage->idle_.push_back(std::move(*first));
    // The rest connect on first use, so a pool larger than the load costs the server nothing.
    storage->idle_.resize(options.connections);
    return storage;
}

std::unique_ptr<PostgresStorage::Connection> PostgresStorage::acquire() {
    std::unique_lock<std::mutex> lock(poolMutex_);
    connectionFree_.wait(lock, [this] { return !idle_.empty(); });
    // Open connections sit at the front; a call takes one of those before it makes a new one.
    auto connection = std::move(idle_.front());
    idle_.erase(idle_.begin());
    return connection;
}

void PostgresStorage::release(std::unique_ptr<Connection> connection) {
    {
        const std::lock_guard<std::mutex> lock(poolMutex_);
        if (connection) {
            idle_.insert(idle_.begin(), std::move(connection));
        } else {
            idle_.push_back(nullptr);
        }
    }
    connectionFree_.notify_one();
}

Result<PostgresStorage::Connection *> PostgresStorage::connected(std::unique_ptr<Connection> &slot) {
    if (slot && !slot->lost()) {
        return slot.get();
    }
    slot.reset();
    auto made = Connection::open(options_.url);
    if (!made) {
        return made.error();
    }
    if (auto prepared = (*made)->prepareAll(); !prepared) {
        return prepared.error();
    }
    slot = std::move(*made);
    return slot.get();
}

namespace {

Result<std::int64_t> singleInteger(Result<std::unique_ptr<QueryResult>> rows) {
    if (!rows) {
        return rows.error();
    }
    if ((*rows)->rows() != 1) {
        return storageFailure("no row");
    }
    return (*rows)->integer(0, 0);
}

// The report's writes inside the caller's transaction; see recordReport.
Result<void> recordInTransaction(PostgresStorage::Connection &db, const VersionReport &report,
                                 const StorageLimits &limits) {
    const std::string appId = std::to_string(report.appId);
    const std::string now = std::to_string(nowSeconds());
    auto app = db.query(kUpsertApp, {appId, report.bundleId, report.title, now});
    if (!app) {
        return app.error();
    }
    if ((*app)->rows() != 1) {
        return storageFailure("upsert_app: no row");
    }
    if ((*app)->text(0, 0) != report.bundleId) {
        return fail(ErrorCode::Conflict, "app " + appId + " is " + (*app)->text(0, 0) + ", not " + report.bundleId);
    }
    // Measured with the app's row locked, so a report of the same app from another instance is either all in it or
    // not at all; a row this report made counts as growth.
    const bool inserted = (*app)->text(0, 1) == "t";
    const auto measured = singleInteger(db.query(kAppBytes, {appId}));
    if (!measured) {
        return measured.error();
    }
    const std::int64_t before =
        *measured -
        (inserted ? static_cast<std::int64_t>(report.bundleId.size() + report.title.size()) + StorageLimits::kRowBytes
                  : 0);
    if (inserted) {
        if (auto indexed = indexAppForSearch(db, appId, report.bundleId, report.title, nullptr); !indexed) {
            return indexed;
        }
    }
    const std::string counted = std::to_string(StorageLimits::kCountedClients);
    if (auto source = db.query(kCountAppSource, {appId, report.client, counted}); !source) {
        return source.error();
    }
    for (const auto &version : report.versions) {
        const std::string externalId = std::to_string(version.externalId);
        if (auto upserted = db.query(kUpsertVersion, {appId, externalId, version.display, now}); !upserted) {
            return upserted.error();
        }
        if (auto source = db.query(kCountVersionSource, {appId, externalId, report.client, counted}); !source) {
            return source.error();
        }
    }
    // Counted after the upserts, so versions the app already holds cost nothing.
    const auto held = db.integer(kCountAppVersions, {appId});
    if (!held) {
        return held.error();
    }
    if (*held > limits.maxVersionsPerApp) {
        if (auto evicted = db.query(kEvictLeastSupported, {appId, std::to_string(*held - limits.maxVersionsPerApp)});
            !evicted) {
            return evicted.error();
        }
        if (auto dropped = db.query(kDropOrphanSources, {appId}); !dropped) {
            return dropped.error();
        }
    }
    const auto after = singleInteger(db.query(kAppBytes, {appId}));
    const auto total = after ? singleInteger(db.query(kLockVersionBytes, {})) : Result<std::int64_t>(after.error());
    if (!total) {
        return total.error();
    }
    const std::int64_t grown = *after - before;
    if (grown > 0 && *total + grown > limits.maxVersionBytes) {
        return fail(ErrorCode::StorageFull, "the service keeps " + std::to_string(limits.maxVersionBytes) +
                                                " bytes of versions and holds " + std::to_string(*total));
    }
    auto stored = db.query(kSetVersionBytes, {std::to_string(*total + grown)});
    return stored ? Result<void>() : Result<void>(stored.error());
}

} // namespace

Result<void> PostgresStorage::recordReport(const VersionReport &report) {
    if (static_cast<std::int64_t>(report.versions.size()) > options_.maxVersionsPerApp) {
        return fail(ErrorCode::TooManyVersions,
                    "a report carries at most " + std::to_string(options_.maxVersionsPerApp) + " versions here");
    }
    Lease lease(*this);
    return lease.inTransaction([&](Connection &db) { return recordInTransaction(db, report, options_); });
}

Result<std::vector<StoredVersion>> PostgresStorage::versionsOf(std::int64_t appId) {
    Lease lease(*this);
    auto rows = lease.query(kSelectVersions, {std::to_string(appId)});
    if (!rows) {
        return rows.error();
    }
    std::vector<StoredVersion> versions;
    versions.reserve(static_cast<std::size_t>((*rows)->rows()));
    for (int row = 0; row < (*rows)->rows(); ++row) {
        versions.push_back(StoredVersion{(*rows)->text(row, 0), (*rows)->integer(row, 1)});
    }
    return versions;
}

Result<std::vector<AppSummary>> PostgresStorage::appsWithId(std::int64_t appId) {
    Lease lease(*this);
    auto rows = lease.query(kAppsWithId, {std::to_string(appId)});
    if (!rows) {
        return rows.error();
    }
    return readSummaries(**rows);
}

Result<std::vector<AppSummary>> PostgresStorage::appsWithBundleId(const std::string &bundleId) {
    Lease lease(*this);
    auto rows = lease.query(kAppsWithBundleId, {bundleId});
    if (!rows) {
        return rows.error();
    }
    return readSummaries(**rows);
}

namespace {

// A text array as PostgreSQL reads it: every element quoted, quotes and backslashes escaped.
std::string textArray(const std::vector<std::string> &elements) {
    std::string array = "{";
    for (const auto &element : elements) {
        array += array.size() == 1 ? "\"" : ",\"";
        for (const char c : element) {
            if (c == '"' || c == '\\') {
                array += '\\';
            }
            array += c;
        }
        array += '"';
    }
    return array + "}";
}

} // namespace

Result<std::vector<VersionHistory>> PostgresStorage::versionHistoryOf(std::int64_t appId) {
    Lease lease(*this);
    auto rows = lease.query(kSelectVersionHistory, {std::to_string(appId)});
    if (!rows) {
        return rows.error();
    }
    std::vector<VersionHistory> versions;
    versions.reserve(static_cast<std::size_t>((*rows)->rows()));
    for (int row = 0; row < (*rows)->rows(); ++row) {
        versions.push_back(VersionHistory{(*rows)->text(row, 0), (*rows)->integer(row, 1), (*rows)->integer(row, 2),
                                          (*rows)->integer(row, 3)});
    }
    return versions;
}

Result<std::vector<AppSummary>> PostgresStorage::searchApps(const AppSearch &search, std::size_t limit) {
    std::vector<std::string> bounds;
    bounds.reserve(search.words.size());
    for (const auto &word : search.words) {
        bounds.push_back(searchWordBound(word));
    }
    Lease lease(*this);
    const std::vector<std::string> parameters{textArray(search.words), textArray(bounds),
                                              search.storeIdentifier ? std::to_string(*search.storeIdentifier) : "",
                                              std::to_string(limit)};
    // No store identifier is a NULL, which finds nothing.
    auto leased = lease.connection();
    if (!leased) {
        return leased.error();
    }
    std::vector<const char *> values{parameters[0].c_str(), parameters[1].c_str(),
                                     search.storeIdentifier ? parameters[2].c_str() : nullptr, parameters[3].c_str()};
    auto rows = (*leased)->queryValues(kSearchApps, values);
    if (!rows) {
        lease.checkAfterFailure();
        return rows.error();
    }
    return readSummaries(**rows);
}

Result<std::vector<AppSummary>> PostgresStorage::recentlyReportedApps(std::size_t limit) {
    Lease lease(*this);
    auto rows = lease.query(kRecentApps, {std::to_string(limit)});
    if (!rows) {
        return rows.error();
    }
    return readSummaries(**rows);
}

Result<StorageTotals> PostgresStorage::totals() {
    Lease lease(*this);
    auto rows = lease.query(kTotals, {});
    if (!rows) {
        return rows.error();
    }
    if ((*rows)->rows() != 1) {
        return storageFailure("totals: no row");
    }
    return StorageTotals{(*rows)->integer(0, 0), (*rows)->integer(0, 1)};
}

namespace {

// Adds the event and drops the oldest beyond the count cap and the byte budget; runs inside the caller's
// transaction with the totals row locked.
Result<void> insertAndTrim(PostgresStorage::Connection &db, const SearchEvent &event, std::int64_t maxEvents,
                           std::int64_t maxBytes) {
    auto totals = db.query(kLockEventTotals, {});
    if (!totals) {
        return totals.error();
    }
    if ((*totals)->rows() != 1) {
        return storageFailure("the search event totals are missing");
    }
    const auto added = static_cast<std::int64_t>(event.query.size() + event.bodyJson.size());
    std::int64_t events = (*totals)->integer(0, 0) + 1;
    std::int64_t bytes = (*totals)->integer(0, 1) + added;
    if (auto inserted =
            db.query(kInsertEvent, {event.query, event.bodyJson, std::to_string(added), std::to_string(nowSeconds())});
        !inserted) {
        return inserted.error();
    }
    const std::int64_t excessEvents = std::max<std::int64_t>(events - maxEvents, 0);
    const std::int64_t excessBytes = std::max<std::int64_t>(bytes - maxBytes, 0);
    if (excessEvents > 0 || excessBytes > 0) {
        auto cutoff = db.query(kTrimCutoff, {std::to_string(excessEvents), std::to_string(excessBytes)});
        if (!cutoff) {
            return cutoff.error();
        }
        if ((*cutoff)->rows() == 1) {
            if (auto dropped = db.query(kDeleteEventsUpTo, {(*cutoff)->text(0, 0)}); !dropped) {
                return dropped.error();
            }
            events -= (*cutoff)->integer(0, 1);
            bytes -= (*cutoff)->integer(0, 2);
        }
    }
    auto stored = db.query(kSetEventTotals, {std::to_string(events), std::to_string(bytes)});
    return stored ? Result<void>() : Result<void>(stored.error());
}

} // namespace

Result<void> PostgresStorage::recordSearchEvent(const SearchEvent &event) {
    Lease lease(*this);
    return lease.inTransaction([&](Connection &db) {
        return insertAndTrim(db, event, options_.maxSearchEvents, options_.maxSearchEventBytes);
    });
}

Result<std::int64_t> PostgresStorage::versionBytes() {
    Lease lease(*this);
    return singleInteger(lease.query(kVersionBytes, {}));
}

std::string PostgresStorage::clientKey() const {
    return clientKey_;
}

Result<std::int64_t> PostgresStorage::searchEventCount() {
    Lease lease(*this);
    auto connection = lease.connection();
    if (!connection) {
        return connection.error();
    }
    auto count = (*connection)->integer(kCountEvents, {});
    if (!count) {
        lease.checkAfterFailure();
    }
    return count;
}

Result<void> PostgresStorage::ping() {
    Lease lease(*this);
    auto connection = lease.connection();
    if (!connection) {
        return connection.error();
    }
    auto answered = (*connection)->execute("SELECT 1");
    if (!answered) {
        lease.checkAfterFailure();
    }
    return answered;
}

} // namespace qv::server
