// In-memory queues for tests: tasks wait until the test drains them, so every interleaving is explicit.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/queue.h"

namespace qv {

class FakeQueue : public Queue {
  public:
    explicit FakeQueue(std::string label = {}) : label_(std::move(label)) {}

    void async(Task task) override { pending_.push_back(std::move(task)); }

    // Runs queued tasks, including those they add, until none is left; returns how many ran.
    int drain() {
        int ran = 0;
        while (!pending_.empty()) {
            Task task = std::move(pending_.front());
            pending_.pop_front();
            task();
            ++ran;
        }
        return ran;
    }

    std::size_t pendingCount() const { return pending_.size(); }
    const std::string &label() const { return label_; }

  private:
    std::string label_;
    std::deque<Task> pending_;
};

class FakeQueues : public Queues {
  public:
    Queue &main() override { return main_; }
    Queue &global() override { return global_; }

    std::unique_ptr<Queue> makeSerial(const std::string &label) override {
        auto queue = std::make_unique<ForwardingQueue>(label, serial_);
        serialLabels_.push_back(label);
        return queue;
    }

    FakeQueue &mainQueue() { return main_; }
    FakeQueue &globalQueue() { return global_; }
    // All serial queues made by this factory share one pending list, in the order tasks were added.
    FakeQueue &serialQueues() { return serial_; }
    const std::vector<std::string> &serialLabels() const { return serialLabels_; }

    // Drains every queue, background work first, until nothing is left anywhere.
    void drainAll() {
        while (serial_.drain() + global_.drain() + main_.drain() > 0) {
        }
    }

  private:
    class ForwardingQueue : public Queue {
      public:
        ForwardingQueue(std::string label, FakeQueue &target) : label_(std::move(label)), target_(target) {}
        void async(Task task) override { target_.async(std::move(task)); }

      private:
        std::string label_;
        FakeQueue &target_;
    };

    FakeQueue main_{"main"};
    FakeQueue global_{"global"};
    FakeQueue serial_{"serial"};
    std::vector<std::string> serialLabels_;
};

} // namespace qv
