// Port: posts notifications by name, with no object and no user information.
#pragma once

#include <string>

namespace qv {

class Notifier {
  public:
    virtual ~Notifier() = default;
    // To every process on the device (the Darwin notify centre), delivered immediately.
    virtual void postSystemWide(const std::string &name) = 0;
    // To observers in this process only (the default notification centre).
    virtual void postLocal(const std::string &name) = 0;
};

// For tools and tests that have no one to tell.
class SilentNotifier : public Notifier {
  public:
    void postSystemWide(const std::string & /*name*/) override {}
    void postLocal(const std::string & /*name*/) override {}
};

} // namespace qv
