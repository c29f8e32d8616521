// Port: where the App Store app keeps its data (its data-container directory), shared by both store processes.
#pragma once

#include <optional>
#include <string>

namespace qv {

class AppStoreContainer {
  public:
    virtual ~AppStoreContainer() = default;
    // The directory, or nothing when the system does not know the app.
    virtual std::optional<std::string> dataContainerDirectory() const = 0;
};

// A container at a fixed place (or none): for tests and tools.
class FixedAppStoreContainer : public AppStoreContainer {
  public:
    explicit FixedAppStoreContainer(std::optional<std::string> directory) : directory_(std::move(directory)) {}
    std::optional<std::string> dataContainerDirectory() const override { return directory_; }

  private:
    std::optional<std::string> directory_;
};

} // namespace qv
