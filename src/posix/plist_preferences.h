// Preferences port over a property-list file shaped as the platform's defaults write it: one top-level dictionary
// from key to value, stored as a binary property list (a file copied off a phone can be read and edited).
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"
#include "posix/file_preferences.h"

namespace qv::posix {

// The settings file's name on a phone, inside the App Store app's container under Library/Preferences.
inline constexpr std::string_view kPreferencesFileName = "com.quorvane.qvdovrinkit.preferences.plist";
// A defaults file holds a handful of switches; anything near this size is not one.
inline constexpr std::size_t kMaxPreferencesFileBytes = std::size_t{1} * 1024U * 1024U;
inline constexpr int kMaxPreferencesDepth = 32;

// A binary or XML property list whose top object is a dictionary with text keys. Fails with
// MalformedPropertyList (also for too large, too deep, or a reference type a defaults file never holds) or
// WrongType (the top object is no dictionary).
Result<Dictionary> readPreferencesPropertyList(std::string_view bytes);
// The dictionary as a binary property list. Fails with UnencodableValue (null, non-text keys, texts with NUL).
Result<std::string> writePreferencesPropertyList(const Dictionary &values);

class PlistPreferences final : public FilePreferences {
  public:
    // A missing file reads as empty and is created on the first flush. A file that cannot be read or parsed fails
    // here, so nothing ever writes over it.
    static Result<std::unique_ptr<PlistPreferences>> open(const std::string &path);

  protected:
    Result<std::string> encode(const Dictionary &values) const override;

  private:
    PlistPreferences(std::string path, Dictionary values) : FilePreferences(std::move(path), std::move(values)) {}
};

// A property-list file's dictionary, for files such as the factory defaults. Fails with FileUnreadable or as
// readPreferencesPropertyList does.
Result<Value> readPropertyListDictionaryFile(const std::string &path);

} // namespace qv::posix
