// Port: the few bundle and file questions the resource code asks.
#pragma once

#include <optional>
#include <string>

namespace qv {

class ResourceFiles {
  public:
    ResourceFiles() = default;
    ResourceFiles(const ResourceFiles &) = delete;
    ResourceFiles &operator=(const ResourceFiles &) = delete;
    virtual ~ResourceFiles() = default;

    virtual bool fileExists(const std::string &path) = 0;
    // The bundle's default-table text for key, the key itself when the table lacks it; nothing without a bundle.
    virtual std::optional<std::string> localizedString(const std::string &bundlePath, const std::string &key) = 0;
    virtual std::optional<std::string> pathForResource(const std::string &bundlePath, const std::string &name,
                                                       const std::string &type) = 0;
};

} // namespace qv
