// Preferences port over a JSON file holding one object of stored values.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/result.h"
#include "base/value.h"
#include "posix/file_preferences.h"

namespace qv::posix {

class JsonFilePreferences final : public FilePreferences {
  public:
    // Reads the file once. Fails with FileUnreadable, MalformedJson or WrongType (not a JSON object).
    static Result<std::unique_ptr<JsonFilePreferences>> load(const std::string &path);

    // No file: nothing stored, and flushing keeps changes in memory.
    JsonFilePreferences() = default;

  protected:
    Result<std::string> encode(const Dictionary &values) const override;

  private:
    JsonFilePreferences(std::string path, Dictionary values) : FilePreferences(std::move(path), std::move(values)) {}
};

} // namespace qv::posix
