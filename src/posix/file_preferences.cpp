// Reading stored values over their defaults, and writing them back only when they changed.
#include "posix/file_preferences.h"

#include "posix/file_io.h"

namespace qv::posix {

std::optional<Value> FilePreferences::valueForKey(const std::string &key) const {
    const Value *value = values_.find(Value(key));
    if (value == nullptr) {
        value = defaults_.find(Value(key));
    }
    if (value == nullptr) {
        return std::nullopt;
    }
    return *value;
}

void FilePreferences::setValue(const std::string &key, Value value) {
    values_.set(Value(key), std::move(value));
    changed_ = true;
}

Result<void> FilePreferences::flush() {
    if (!changed_ || path_.empty()) {
        return {};
    }
    const auto bytes = encode(values_);
    if (!bytes) {
        return bytes.error();
    }
    Result<void> written = writeFileAtomically(path_, *bytes);
    if (written) {
        changed_ = false;
    }
    return written;
}

void FilePreferences::registerDefaults(const Dictionary &defaults) {
    for (const auto &[key, value] : defaults) {
        defaults_.set(key, value);
    }
}

} // namespace qv::posix
