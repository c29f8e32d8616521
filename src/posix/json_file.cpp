// Whole-file JSON reading on top of the file reader and the JSON parser.
#include "posix/json_file.h"

#include <utility>

#include "base/json.h"
#include "posix/file_io.h"

namespace qv::posix {

Result<Value> readJsonFile(const std::string &path) {
    auto text = readFile(path);
    if (!text) {
        return text.error();
    }
    auto json = parseJson(*text);
    if (!json) {
        return fail(ErrorCode::MalformedJson, path + ": malformed JSON: " + json.error().detail);
    }
    return std::move(json).value();
}

} // namespace qv::posix
