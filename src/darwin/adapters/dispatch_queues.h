// The phone's Queue port: grand central dispatch's main, global and serial queues.
#pragma once

#include "platform/queue.h"

namespace qv::darwin {

class DispatchQueues final : public Queues {
  public:
    DispatchQueues();
    ~DispatchQueues() override;
    Queue &main() override;
    Queue &global() override;
    std::unique_ptr<Queue> makeSerial(const std::string &label) override;

  private:
    std::unique_ptr<Queue> main_;
    std::unique_ptr<Queue> global_;
};

} // namespace qv::darwin
