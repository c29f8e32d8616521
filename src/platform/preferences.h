// Port: the stored preferences (the shared defaults domain on the phone): read, write, flush, factory defaults.
#pragma once

#include <optional>
#include <string>

#include "base/result.h"
#include "base/text.h"
#include "base/value.h"

namespace qv {

class Preferences {
  public:
    Preferences() = default;
    Preferences(const Preferences &) = delete;
    Preferences &operator=(const Preferences &) = delete;
    virtual ~Preferences() = default;

    // The stored value, else the registered default, else nothing.
    virtual std::optional<Value> valueForKey(const std::string &key) const = 0;

    // Changes the value in memory; flush makes it last.
    virtual void setValue(const std::string &key, Value value) = 0;
    // Writes what changed to the store. Fails when the store cannot be written.
    virtual Result<void> flush() = 0;
    // The values read for keys that were never written. Registering again replaces the same keys.
    virtual void registerDefaults(const Dictionary &defaults) = 0;

    // The stored value read as a switch, the way the platform's defaults do: numbers are true when non-zero,
    // texts when they say "YES"/"true" (any case) or start with a non-zero number; anything else is false.
    bool boolForKey(const std::string &key) const {
        const auto value = valueForKey(key);
        return value.has_value() && lenientBool(*value);
    }
};

} // namespace qv
