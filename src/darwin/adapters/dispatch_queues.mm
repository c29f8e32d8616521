// Queues over grand central dispatch; every task runs guarded so nothing it raises reaches the host.
#include "darwin/adapters/dispatch_queues.h"

#include "darwin/core/guard.h"

#import <dispatch/dispatch.h>

#include <memory>
#include <utility>

namespace qv::darwin {

namespace {

class DispatchQueue final : public Queue {
  public:
    explicit DispatchQueue(dispatch_queue_t queue) : queue_(queue) {}

    void async(Task task) override {
        auto shared = std::make_shared<Task>(std::move(task));
        dispatch_async(queue_, ^{
          guarded([&] { (*shared)(); });
        });
    }

  private:
    dispatch_queue_t queue_;
};

} // namespace

DispatchQueues::DispatchQueues()
    : main_(std::make_unique<DispatchQueue>(dispatch_get_main_queue())),
      global_(std::make_unique<DispatchQueue>(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0))) {}

DispatchQueues::~DispatchQueues() = default;

Queue &DispatchQueues::main() {
    return *main_;
}

Queue &DispatchQueues::global() {
    return *global_;
}

std::unique_ptr<Queue> DispatchQueues::makeSerial(const std::string &label) {
    return std::make_unique<DispatchQueue>(dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL));
}

} // namespace qv::darwin
