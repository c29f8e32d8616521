// Port: read access to the stored preferences (the app's defaults domain on the phone).
#pragma once

#include <optional>
#include <string>

#include "base/text.h"
#include "base/value.h"

namespace qv {

class Preferences {
  public:
    Preferences() = default;
    Preferences(const Preferences &) = delete;
    Preferences &operator=(const Preferences &) = delete;
    virtual ~Preferences() = default;

    // The stored value, or nothing when the key was never written.
    virtual std::optional<Value> valueForKey(const std::string &key) const = 0;

    // The stored value read as a switch, the way the platform's defaults do: numbers are true when non-zero,
    // texts when they say "YES"/"true" (any case) or start with a non-zero number; anything else is false.
    bool boolForKey(const std::string &key) const {
        const auto value = valueForKey(key);
        return value.has_value() && lenientBool(*value);
    }
};

} // namespace qv
