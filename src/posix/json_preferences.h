// Preferences port over a JSON file holding one object of stored values.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/value.h"
#include "platform/preferences.h"

namespace qv::posix {

class JsonFilePreferences : public Preferences {
  public:
    // Reads the file once; nothing when it cannot be read or is not a JSON object (reason in *error).
    static std::unique_ptr<JsonFilePreferences> load(const std::string &path, std::string *error = nullptr);

    JsonFilePreferences() = default;

    std::optional<Value> valueForKey(const std::string &key) const override;

  private:
    explicit JsonFilePreferences(Dictionary values) : values_(std::move(values)) {}
    Dictionary values_;
};

} // namespace qv::posix
