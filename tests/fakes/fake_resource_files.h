// Resource files in memory: which paths exist and each bundle's localisation table.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "service/resource_bundle.h"

namespace qv {

struct FakeResourceFiles final : ResourceFiles {
    std::set<std::string> files;
    std::map<std::string, std::map<std::string, std::string>> tables; // bundle path -> key -> text

    bool fileExists(const std::string &path) override { return files.count(path) != 0; }
    std::optional<std::string> localizedString(const std::string &bundlePath, const std::string &key) override {
        const auto table = tables.find(bundlePath);
        if (table == tables.end()) {
            return std::nullopt;
        }
        const auto text = table->second.find(key);
        return text == table->second.end() ? key : text->second;
    }
    std::optional<std::string> pathForResource(const std::string &bundlePath, const std::string &name,
                                               const std::string &type) override {
        const std::string path = bundlePath + "/" + name + "." + type;
        return tables.count(path) != 0 ? std::optional<std::string>(path) : std::nullopt;
    }
};

} // namespace qv
