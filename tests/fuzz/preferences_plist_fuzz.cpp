// Fuzz target: the preferences reader must reject or read any bytes, and what it reads must survive being written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/json.h"
#include "posix/plist_preferences.h"

namespace {

// Dates pass through the property-list library's own date type, which keeps whole microseconds by its own rounding;
// the check is that every other kind survives exactly, and that a date stays a date.
qv::Value withDatesBlanked(const qv::Value &value) {
    if (value.asDate() != nullptr) {
        return qv::Value(qv::Date{});
    }
    if (const qv::Array *array = value.asArray()) {
        qv::Array copy;
        for (const qv::Value &item : *array) {
            copy.push_back(withDatesBlanked(item));
        }
        return qv::Value(copy);
    }
    if (const qv::Dictionary *dictionary = value.asDictionary()) {
        qv::Dictionary copy;
        for (const auto &[key, item] : *dictionary) {
            copy.set(key, withDatesBlanked(item));
        }
        return qv::Value(copy);
    }
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto values = qv::posix::readPreferencesPropertyList(bytes);
    if (!values.ok()) {
        return 0;
    }
    const auto written = qv::posix::writePreferencesPropertyList(*values);
    if (!written.ok()) {
        return 0; // e.g. a text with an embedded NUL, which the writer refuses
    }
    const auto again = qv::posix::readPreferencesPropertyList(*written);
    if (!again.ok()) {
        std::abort();
    }
    // Reals that never equal themselves (NaN) still match in their JSON text.
    const qv::Value expected = withDatesBlanked(qv::Value(*values));
    const qv::Value actual = withDatesBlanked(qv::Value(*again));
    if (!(actual == expected) && qv::toJson(actual) != qv::toJson(expected)) {
        std::abort();
    }
    return 0;
}
