// The ResourceFiles port on the phone: the file manager and NSBundle's lookups.
#pragma once

#include "platform/resource_files.h"

namespace qv::darwin {

class BundleFiles final : public ResourceFiles {
  public:
    bool fileExists(const std::string &path) override;
    std::optional<std::string> localizedString(const std::string &bundlePath, const std::string &key) override;
    std::optional<std::string> pathForResource(const std::string &bundlePath, const std::string &name,
                                               const std::string &type) override;
};

} // namespace qv::darwin
