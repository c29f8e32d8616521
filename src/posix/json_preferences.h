// Preferences port over a JSON file holding one object of stored values.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/result.h"
#include "base/value.h"
#include "platform/preferences.h"

namespace qv::posix {

class JsonFilePreferences : public Preferences {
  public:
    // Reads the file once. Fails with FileUnreadable, MalformedJson or WrongType (not a JSON object).
    static Result<std::unique_ptr<JsonFilePreferences>> load(const std::string &path);

    JsonFilePreferences() = default;

    std::optional<Value> valueForKey(const std::string &key) const override;

  private:
    explicit JsonFilePreferences(Dictionary values) : values_(std::move(values)) {}
    Dictionary values_;
};

} // namespace qv::posix
