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

    // No file: nothing stored, and flushing keeps changes in memory.
    JsonFilePreferences() = default;

    std::optional<Value> valueForKey(const std::string &key) const override;
    void setValue(const std::string &key, Value value) override;
    // Rewrites the file whole when something changed.
    Result<void> flush() override;
    void registerDefaults(const Dictionary &defaults) override;

  private:
    JsonFilePreferences(std::string path, Dictionary values) : path_(std::move(path)), values_(std::move(values)) {}
    std::string path_;
    Dictionary values_;
    Dictionary defaults_;
    bool changed_ = false;
};

} // namespace qv::posix
