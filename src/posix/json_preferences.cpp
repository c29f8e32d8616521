// Stored preferences kept in a JSON file.
#include "posix/json_preferences.h"

#include "base/json.h"
#include "posix/file_io.h"

namespace qv::posix {

Result<std::unique_ptr<JsonFilePreferences>> JsonFilePreferences::load(const std::string &path) {
    const auto text = readFile(path);
    if (!text) {
        return text.error();
    }
    auto json = parseJson(*text);
    if (!json) {
        return fail(json.error().code, path + ": " + json.error().detail);
    }
    if (json->asDictionary() == nullptr) {
        return fail(ErrorCode::WrongType, path + ": not a JSON object");
    }
    return std::unique_ptr<JsonFilePreferences>(new JsonFilePreferences(path, std::move(*json->asDictionary())));
}

std::optional<Value> JsonFilePreferences::valueForKey(const std::string &key) const {
    const Value *value = values_.find(Value(key));
    if (value == nullptr) {
        value = defaults_.find(Value(key));
    }
    if (value == nullptr) {
        return std::nullopt;
    }
    return *value;
}

void JsonFilePreferences::setValue(const std::string &key, Value value) {
    values_.set(Value(key), std::move(value));
    changed_ = true;
}

Result<void> JsonFilePreferences::flush() {
    if (!changed_ || path_.empty()) {
        return {};
    }
    Result<void> written = writeFileAtomically(path_, toJson(Value(values_)) + "\n");
    if (written) {
        changed_ = false;
    }
    return written;
}

void JsonFilePreferences::registerDefaults(const Dictionary &defaults) {
    for (const auto &[key, value] : defaults) {
        defaults_.set(key, value);
    }
}

} // namespace qv::posix
