// The phone's AppStoreContainer port: the App Store app's data container as its application proxy reports it.
#pragma once

#include "platform/app_store_container.h"

namespace qv::darwin {

// Asks the system afresh on every call; nothing when the proxy class, the app or its container is unknown.
class ApplicationProxyContainer final : public AppStoreContainer {
  public:
    std::optional<std::string> dataContainerDirectory() const override;
};

} // namespace qv::darwin
