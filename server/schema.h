// The database's tables as a numbered list of changes, written for SQLite and for PostgreSQL side by side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/result.h"

namespace qv::server {

// One change to the tables, in each backend's dialect. Both texts make the same tables, indexes and rows, so a
// service reads and writes either database alike.
struct SchemaChange {
    const char *sqlite;
    const char *postgres;
};

// Every change, oldest first. A database records in schema_version how many it has had; opening it runs the rest,
// in order, in the transaction that proves it writable, so a file or database from any earlier release upgrades in
// place. A new change goes at the end, never between or into changes a released service has run.
std::span<const SchemaChange> schemaChanges();

// The change (counted from 1) that adds the search words. Splitting names into words is code, not SQL, so a storage
// opening a database that had fewer changes fills in the words of the apps it already holds, in the same transaction.
inline constexpr std::int64_t kSearchWordsChange = 3;

// The same in both dialects: the table that holds the count, reading it, and recording a new one.
inline constexpr const char *kSchemaVersionTable =
    "CREATE TABLE IF NOT EXISTS schema_version(version integer NOT NULL)";
inline constexpr const char *kSchemaVersion = "SELECT COALESCE(MAX(version), 0) FROM schema_version";
std::string recordSchemaVersion(std::size_t version);

// The changes a database that has had `applied` of them still needs; StorageFailed when it has had more than this
// service knows, which means a newer release wrote it and this one would misread it.
Result<std::span<const SchemaChange>> pendingSchemaChanges(std::int64_t applied);

} // namespace qv::server
