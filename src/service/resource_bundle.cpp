// Resource bundle paths, localisation with the English fallback, and the override decision.
#include "service/resource_bundle.h"

namespace qv {
namespace {

constexpr std::string_view kLibraryDirectorySuffix = "/Library/MobileSubstrate/DynamicLibraries/";

std::string joinPathComponent(std::string_view base, std::string_view component) {
    if (component.empty()) {
        return std::string(base);
    }
    std::string joined(base);
    if (joined.empty() || joined.back() != '/') {
        joined += '/';
    }
    joined += component;
    return joined;
}

std::string appendExtension(std::string path, std::string_view extension) {
    if (!extension.empty()) {
        path += '.';
        path += extension;
    }
    return path;
}

} // namespace

std::string jailbreakRootFromLibraryPath(std::string_view libraryPath) {
    const auto suffix = libraryPath.rfind(kLibraryDirectorySuffix);
    if (suffix == std::string_view::npos || suffix == 0 || libraryPath.front() != '/') {
        return std::string(kDefaultJailbreakRoot);
    }
    return std::string(libraryPath.substr(0, suffix));
}

std::string resourceBundlePath(InstallLayout layout, std::string_view jailbreakRoot) {
    if (layout == InstallLayout::Rootful) {
        return std::string(kResourceBundleDirectory);
    }
    const std::string_view root = jailbreakRoot.empty() ? kDefaultJailbreakRoot : jailbreakRoot;
    return std::string(root) + std::string(kResourceBundleDirectory);
}

std::string ResourceBundle::localizedString(const std::string &key) const {
    const auto text = files_.localizedString(path_, key);
    if (text && *text != key) {
        return *text;
    }
    const auto english =
        files_.pathForResource(path_, std::string(kEnglishLocalization), std::string(kLocalizationFolderType));
    if (english) {
        if (auto englishText = files_.localizedString(*english, key)) {
            return *englishText;
        }
    }
    return key;
}

std::string ResourceBundle::pathForFile(std::string_view name, std::string_view extension) const {
    return appendExtension(joinPathComponent(path_, name), extension);
}

bool ResourceBundle::fileExists(const std::optional<std::string> &name,
                                const std::optional<std::string> &extension) const {
    // An empty name would name the bundle directory itself, which is never a resource to hand out.
    if (!name || name->empty()) {
        return false;
    }
    const std::string fileName = appendExtension(*name, extension.value_or(std::string()));
    return files_.fileExists(joinPathComponent(path_, fileName));
}

std::optional<std::string> ResourceBundle::overridePath(const std::optional<std::string> &name,
                                                        const std::optional<std::string> &type) const {
    if (!fileExists(name, type)) {
        return std::nullopt;
    }
    return pathForFile(*name, type.value_or(std::string()));
}

} // namespace qv
