// Port: asynchronous execution on the main queue, a global background queue and named serial queues.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace qv {

using Task = std::function<void()>;

class Queue {
  public:
    Queue() = default;
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;
    virtual ~Queue() = default;

    // Runs the task later, never on the caller's stack.
    virtual void async(Task task) = 0;
};

class Queues {
  public:
    Queues() = default;
    Queues(const Queues &) = delete;
    Queues &operator=(const Queues &) = delete;
    virtual ~Queues() = default;

    // The queue whose tasks may touch the user interface.
    virtual Queue &main() = 0;
    // A concurrent queue of default priority for blocking network work.
    virtual Queue &global() = 0;
    // A new queue that runs its tasks one at a time in the order they were added.
    virtual std::unique_ptr<Queue> makeSerial(const std::string &label) = 0;
};

} // namespace qv
