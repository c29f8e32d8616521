// Strict reading of report and event bodies: every field checked before anything is stored.
#include "server/request_bodies.h"

#include "base/json.h"
#include "base/text.h"

namespace qv::server {

namespace {

const Value *field(const Dictionary &object, std::string_view key) {
    return object.find(Value(key));
}

Error refused(std::string reason) {
    return fail(ErrorCode::BadRequest, std::move(reason));
}

Result<std::string> textField(const Dictionary &object, std::string_view key, std::size_t maxLength) {
    const Value *value = field(object, key);
    if (value == nullptr || value->asString() == nullptr) {
        return refused("\"" + std::string(key) + "\" must be a string");
    }
    if (value->asString()->size() > maxLength) {
        return refused("\"" + std::string(key) + "\" is longer than " + std::to_string(maxLength) + " bytes");
    }
    return *value->asString();
}

// The first text of the value, keys included, that holds a NUL; the parser has already turned every escape into
// well-formed UTF-8, so NUL is the one thing left to look for.
bool holdsNul(const Value &value) {
    if (const auto *text = value.asString()) {
        return text->find('\0') != std::string::npos;
    }
    if (const auto *array = value.asArray()) {
        for (const auto &element : *array) {
            if (holdsNul(element)) {
                return true;
            }
        }
    }
    if (const auto *object = value.asDictionary()) {
        for (const auto &[key, element] : *object) {
            if (holdsNul(key) || holdsNul(element)) {
                return true;
            }
        }
    }
    return false;
}

Result<Value> jsonObject(std::string_view body) {
    if (!isValidUtf8(body)) {
        return refused("the body is not valid UTF-8");
    }
    auto json = parseJson(body);
    if (!json) {
        return refused("malformed JSON: " + json.error().detail);
    }
    if (json->asDictionary() == nullptr) {
        return refused("the body must be a JSON object");
    }
    if (holdsNul(*json)) {
        return refused("a text of the body holds a NUL character");
    }
    return std::move(json).value();
}

} // namespace

bool isCleanText(std::string_view text) {
    return text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

std::optional<std::int64_t> identifierFrom(const Value &value) {
    if (const auto *text = value.asString()) {
        const auto identifier = strictInteger(*text);
        return identifier ? std::optional<std::int64_t>(*identifier) : std::nullopt;
    }
    if (const auto *integer = value.asInteger(); integer != nullptr && *integer >= 0) {
        return *integer;
    }
    return std::nullopt;
}

Result<VersionReport> parseVersionReport(std::string_view body, std::int64_t pathAppId, std::size_t maxVersions) {
    const auto json = jsonObject(body);
    if (!json) {
        return json.error();
    }
    const Dictionary &object = *json->asDictionary();
    VersionReport report;
    const Value *identifier = field(object, "identifier");
    const auto appId = identifier != nullptr ? identifierFrom(*identifier) : std::nullopt;
    if (!appId) {
        return refused("\"identifier\" must be a store identifier (decimal digits)");
    }
    if (*appId != pathAppId) {
        return refused("\"identifier\" " + std::to_string(*appId) + " does not match the app in the path " +
                       std::to_string(pathAppId));
    }
    report.appId = *appId;
    auto bundleId = textField(object, "bundle_id", kMaxNameLength);
    if (!bundleId) {
        return bundleId.error();
    }
    auto title = textField(object, "title", kMaxNameLength);
    if (!title) {
        return title.error();
    }
    report.bundleId = std::move(*bundleId);
    report.title = std::move(*title);

    const Value *versions = field(object, "versions");
    if (versions == nullptr || versions->asArray() == nullptr) {
        return refused("\"versions\" must be an array");
    }
    if (versions->asArray()->empty()) {
        return refused("\"versions\" is empty");
    }
    if (versions->asArray()->size() > maxVersions) {
        return fail(ErrorCode::PayloadTooLarge, "a report carries at most " + std::to_string(maxVersions) +
                                                    " versions; this one has " +
                                                    std::to_string(versions->asArray()->size()));
    }
    for (const auto &entry : *versions->asArray()) {
        const Dictionary *version = entry.asDictionary();
        if (version == nullptr) {
            return refused("every entry of \"versions\" must be an object");
        }
        auto display = textField(*version, "display", kMaxDisplayLength);
        if (!display) {
            return display.error();
        }
        const Value *externalId = field(*version, "externalId");
        const auto externalNumber = externalId != nullptr ? identifierFrom(*externalId) : std::nullopt;
        if (!externalNumber) {
            return refused("\"externalId\" must be an external version identifier (decimal digits)");
        }
        report.versions.push_back(ReportedVersion{*externalNumber, std::move(*display)});
    }
    return report;
}

Result<SearchEvent> parseSearchEvent(std::string_view body) {
    if (body.size() > kMaxEventBytes) {
        return fail(ErrorCode::PayloadTooLarge,
                    "a search event is at most " + std::to_string(kMaxEventBytes) + " bytes");
    }
    const auto json = jsonObject(body);
    if (!json) {
        return json.error();
    }
    const Dictionary &object = *json->asDictionary();
    const Value *name = field(object, "name");
    if (name == nullptr || name->asString() == nullptr || *name->asString() != "search") {
        return refused("\"name\" must be \"search\"");
    }
    const Value *attributes = field(object, "attributes");
    if (attributes == nullptr || attributes->asDictionary() == nullptr) {
        return refused("\"attributes\" must be an object");
    }
    auto query = textField(*attributes->asDictionary(), "query", kMaxQueryLength);
    if (!query) {
        return query.error();
    }
    const Value *results = field(*attributes->asDictionary(), "results");
    if (results == nullptr || results->asArray() == nullptr) {
        return refused("\"results\" must be an array");
    }
    Array kept;
    for (const auto &entry : *results->asArray()) {
        const Dictionary *result = entry.asDictionary();
        const Value *appId = result != nullptr ? field(*result, "appId") : nullptr;
        const Value *rank = result != nullptr ? field(*result, "rank") : nullptr;
        if (appId == nullptr || appId->asString() == nullptr || !strictInteger(*appId->asString())) {
            return refused("every result needs \"appId\" as a string of decimal digits");
        }
        if (rank == nullptr || rank->asInteger() == nullptr || *rank->asInteger() < 1) {
            return refused("every result needs \"rank\" as a positive integer");
        }
        kept.push_back(Value(Dictionary{{"appId", *appId}, {"rank", *rank}}));
    }
    const Value stored(Dictionary{
        {"name", *name}, {"attributes", Value(Dictionary{{"query", *query}, {"results", Value(std::move(kept))}})}});
    return SearchEvent{std::move(*query), toJson(stored)};
}

} // namespace qv::server
