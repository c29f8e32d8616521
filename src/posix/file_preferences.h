// Stored preferences kept in memory over registered defaults and written whole to one file in a subclass's format.
#pragma once

#include <optional>
#include <string>

#include "base/result.h"
#include "base/value.h"
#include "platform/preferences.h"

namespace qv::posix {

class FilePreferences : public Preferences {
  public:
    std::optional<Value> valueForKey(const std::string &key) const override;
    void setValue(const std::string &key, Value value) override;
    // Rewrites the file whole, atomically, when something changed; without a file, changes stay in memory.
    Result<void> flush() override;
    void registerDefaults(const Dictionary &defaults) override;

    const Dictionary &storedValues() const { return values_; }

  protected:
    FilePreferences() = default;
    FilePreferences(std::string path, Dictionary values) : path_(std::move(path)), values_(std::move(values)) {}

    // The file's whole content for the stored values.
    virtual Result<std::string> encode(const Dictionary &values) const = 0;

  private:
    std::string path_;
    Dictionary values_;
    Dictionary defaults_;
    bool changed_ = false;
};

} // namespace qv::posix
