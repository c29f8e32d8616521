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

Result<std::string> JsonFilePreferences::encode(const Dictionary &values) const {
    return toJson(Value(values)) + "\n";
}

} // namespace qv::posix
