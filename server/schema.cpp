// The database's tables, change by change, for SQLite and PostgreSQL.
#include "server/schema.h"

#include <iterator>
#include <string>

namespace qv::server {

namespace {

// The SQLite texts of the first two changes also run on files made before versions were recorded, which hold all,
// some or none of their tables; they only create what is missing.
constexpr SchemaChange kChanges[] = {
    // Apps, their versions, search events and the service's own state.
    {R"sql(
CREATE TABLE IF NOT EXISTS apps(
  app_id INTEGER PRIMARY KEY,
  bundle_id TEXT NOT NULL,
  title TEXT NOT NULL,
  reported_at INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS apps_by_bundle_id ON apps(bundle_id);
CREATE TABLE IF NOT EXISTS versions(
  app_id INTEGER NOT NULL REFERENCES apps(app_id),
  external_id INTEGER NOT NULL,
  display TEXT NOT NULL,
  reported_at INTEGER NOT NULL,
  PRIMARY KEY(app_id, external_id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS search_events(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  query TEXT NOT NULL,
  body TEXT NOT NULL,
  received_at INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS search_event_bytes(
  id INTEGER PRIMARY KEY CHECK(id = 1),
  total INTEGER NOT NULL);
INSERT OR IGNORE INTO search_event_bytes(id, total)
  SELECT 1, COALESCE(SUM(length(CAST(query AS BLOB)) + length(CAST(body AS BLOB))), 0) FROM search_events;
CREATE TABLE IF NOT EXISTS service_state(
  id INTEGER PRIMARY KEY CHECK(id = 1),
  opened_at INTEGER NOT NULL);
)sql",
     R"sql(
CREATE TABLE apps(
  app_id bigint PRIMARY KEY,
  bundle_id text NOT NULL,
  title text NOT NULL,
  reported_at bigint NOT NULL);
CREATE INDEX apps_by_bundle_id ON apps(bundle_id);
CREATE TABLE versions(
  app_id bigint NOT NULL REFERENCES apps(app_id),
  external_id bigint NOT NULL,
  display text NOT NULL,
  reported_at bigint NOT NULL,
  PRIMARY KEY(app_id, external_id));
CREATE TABLE search_events(
  id bigserial PRIMARY KEY,
  query text NOT NULL,
  body text NOT NULL,
  bytes bigint NOT NULL,
  received_at bigint NOT NULL);
CREATE TABLE search_event_totals(
  id integer PRIMARY KEY CHECK(id = 1),
  events bigint NOT NULL,
  bytes bigint NOT NULL);
INSERT INTO search_event_totals(id, events, bytes) VALUES(1, 0, 0);
CREATE TABLE service_state(
  id integer PRIMARY KEY CHECK(id = 1),
  opened_at bigint NOT NULL);
)sql"},
    // Who reported what, the bytes kept and the key senders' addresses are hashed with. Versions stored before
    // senders were counted get one anonymous sender, so they do not look less supported than anything new.
    {R"sql(
CREATE TABLE IF NOT EXISTS version_sources(
  app_id INTEGER NOT NULL,
  external_id INTEGER NOT NULL,
  client TEXT NOT NULL,
  PRIMARY KEY(app_id, external_id, client)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS app_sources(
  app_id INTEGER NOT NULL,
  client TEXT NOT NULL,
  PRIMARY KEY(app_id, client)) WITHOUT ROWID;
INSERT OR IGNORE INTO version_sources(app_id, external_id, client)
  SELECT v.app_id, v.external_id, '' FROM versions v
  WHERE NOT EXISTS (SELECT 1 FROM version_sources s WHERE s.app_id = v.app_id AND s.external_id = v.external_id);
INSERT OR IGNORE INTO app_sources(app_id, client)
  SELECT a.app_id, '' FROM apps a WHERE NOT EXISTS (SELECT 1 FROM app_sources s WHERE s.app_id = a.app_id);
CREATE TABLE IF NOT EXISTS version_bytes(
  id INTEGER PRIMARY KEY CHECK(id = 1),
  total INTEGER NOT NULL);
INSERT OR IGNORE INTO version_bytes(id, total) SELECT 1,
  (SELECT COALESCE(SUM(length(CAST(bundle_id AS BLOB)) + length(CAST(title AS BLOB)) + 64), 0) FROM apps) +
  (SELECT COALESCE(SUM(length(CAST(display AS BLOB)) + 64), 0) FROM versions);
CREATE TABLE IF NOT EXISTS client_key(
  id INTEGER PRIMARY KEY CHECK(id = 1),
  secret TEXT NOT NULL);
)sql",
     R"sql(
CREATE TABLE version_sources(
  app_id bigint NOT NULL,
  external_id bigint NOT NULL,
  client text NOT NULL,
  PRIMARY KEY(app_id, external_id, client));
CREATE TABLE app_sources(
  app_id bigint NOT NULL,
  client text NOT NULL,
  PRIMARY KEY(app_id, client));
INSERT INTO version_sources(app_id, external_id, client) SELECT app_id, external_id, '' FROM versions;
INSERT INTO app_sources(app_id, client) SELECT app_id, '' FROM apps;
CREATE TABLE version_bytes(
  id integer PRIMARY KEY CHECK(id = 1),
  total bigint NOT NULL);
INSERT INTO version_bytes(id, total) SELECT 1,
  (SELECT COALESCE(SUM(octet_length(bundle_id) + octet_length(title) + 64), 0) FROM apps) +
  (SELECT COALESCE(SUM(octet_length(display) + 64), 0) FROM versions);
CREATE TABLE client_key(
  id integer PRIMARY KEY CHECK(id = 1),
  secret text NOT NULL);
)sql"},
    // When apps and versions were first reported, and the words apps are searched by. Rows from before take their
    // latest report as their first, the best that is known of them; the storages fill in the words of apps already
    // stored (see kSearchWordsChange). PostgreSQL compares the words byte by byte, as SQLite does, so a word's prefix
    // is one range of the index.
    {R"sql(
ALTER TABLE apps ADD COLUMN first_reported_at INTEGER NOT NULL DEFAULT 0;
UPDATE apps SET first_reported_at = reported_at;
ALTER TABLE versions ADD COLUMN first_reported_at INTEGER NOT NULL DEFAULT 0;
UPDATE versions SET first_reported_at = reported_at;
CREATE INDEX apps_by_reported_at ON apps(reported_at);
CREATE TABLE app_search_terms(
  term TEXT NOT NULL,
  app_id INTEGER NOT NULL,
  PRIMARY KEY(term, app_id)) WITHOUT ROWID;
)sql",
     R"sql(
ALTER TABLE apps ADD COLUMN first_reported_at bigint NOT NULL DEFAULT 0;
UPDATE apps SET first_reported_at = reported_at;
ALTER TABLE versions ADD COLUMN first_reported_at bigint NOT NULL DEFAULT 0;
UPDATE versions SET first_reported_at = reported_at;
CREATE INDEX apps_by_reported_at ON apps(reported_at);
CREATE TABLE app_search_terms(
  term text COLLATE "C" NOT NULL,
  app_id bigint NOT NULL,
  PRIMARY KEY(term, app_id));
)sql"},
};

} // namespace

std::span<const SchemaChange> schemaChanges() {
    return kChanges;
}

std::string recordSchemaVersion(std::size_t version) {
    return "DELETE FROM schema_version; INSERT INTO schema_version(version) VALUES(" + std::to_string(version) + ")";
}

Result<std::span<const SchemaChange>> pendingSchemaChanges(std::int64_t applied) {
    const auto known = static_cast<std::int64_t>(std::size(kChanges));
    if (applied < 0 || applied > known) {
        return fail(ErrorCode::StorageFailed, "the database's schema is at version " + std::to_string(applied) +
                                                  "; this service knows versions up to " + std::to_string(known) +
                                                  " (a newer release wrote it)");
    }
    return schemaChanges().subspan(static_cast<std::size_t>(applied));
}

} // namespace qv::server
