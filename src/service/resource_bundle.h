// Where the library's resource bundle lives, localised text with the English fallback, and the resource override.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/resource_files.h"

namespace qv {

inline constexpr std::string_view kResourceBundleDirectory =
    "/var/quorvane_tweak_resources/qvdovrinkit/QVVPPResources.bundle";
inline constexpr std::string_view kDefaultJailbreakRoot = "/var/jb";
inline constexpr std::string_view kEnglishLocalization = "en";
inline constexpr std::string_view kLocalizationFolderType = "lproj";

// The two ways a package can be installed: at the file-system root, or under a jailbreak root directory.
enum class InstallLayout { Rootful, Rootless };

// The jailbreak root of a rootless install, read off the path the library was loaded from
// ("<root>/Library/MobileSubstrate/DynamicLibraries/<name>.dylib"); the default root when that path says nothing.
std::string jailbreakRootFromLibraryPath(std::string_view libraryPath);

// The resource bundle directory: fixed for rootful installs, under the jailbreak root for rootless ones.
std::string resourceBundlePath(InstallLayout layout, std::string_view jailbreakRoot);

class ResourceBundle {
  public:
    ResourceBundle(ResourceFiles &files, std::string bundlePath) : files_(files), path_(std::move(bundlePath)) {}

    const std::string &path() const { return path_; }

    // A text that comes back equal to its key counts as untranslated and is looked up again in English.
    std::string localizedString(const std::string &key) const;
    // The bundle path, then the name as a path component, then the extension (none when empty).
    std::string pathForFile(std::string_view name, std::string_view extension) const;
    // True when name plus extension is a file directly in the bundle directory; false without a name
    // or with an empty one.
    bool fileExists(const std::optional<std::string> &name, const std::optional<std::string> &extension) const;
    // The answer to a resource request of any bundle in the process: the bundle's own file when it has one of
    // that name and type, otherwise nothing (the request goes to the replaced implementation).
    std::optional<std::string> overridePath(const std::optional<std::string> &name,
                                            const std::optional<std::string> &type) const;

  private:
    ResourceFiles &files_;
    std::string path_;
};

} // namespace qv
