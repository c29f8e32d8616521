// Stored preferences read from a JSON file.
#include "posix/json_preferences.h"

#include "base/json.h"
#include "posix/file_io.h"

namespace qv::posix {

std::unique_ptr<JsonFilePreferences> JsonFilePreferences::load(const std::string &path, std::string *error) {
    const auto text = readFile(path);
    if (!text) {
        if (error != nullptr) {
            *error = text.error().detail;
        }
        return nullptr;
    }
    auto json = parseJson(*text);
    if (!json || json->asDictionary() == nullptr) {
        if (error != nullptr) {
            *error = path + ": " + (json ? std::string("not a JSON object") : json.error().detail);
        }
        return nullptr;
    }
    return std::unique_ptr<JsonFilePreferences>(new JsonFilePreferences(std::move(*json->asDictionary())));
}

std::optional<Value> JsonFilePreferences::valueForKey(const std::string &key) const {
    const Value *value = values_.find(Value(key));
    if (value == nullptr) {
        return std::nullopt;
    }
    return *value;
}

} // namespace qv::posix
