// The phone's Notifier port: the Darwin notify centre across processes, the default centre within this one.
#pragma once

#include "platform/notifier.h"

namespace qv::darwin {

class NotificationCentres final : public Notifier {
  public:
    void postSystemWide(const std::string &name) override;
    void postLocal(const std::string &name) override;
};

} // namespace qv::darwin
