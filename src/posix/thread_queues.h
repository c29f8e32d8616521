// Queue port on threads: a worker pool for the global queue, one thread per serial queue, and a main queue that
// the owning thread runs as a loop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/queue.h"

namespace qv::posix {

// Runs tasks on a fixed number of threads; with one thread it is a serial queue. The destructor finishes the
// tasks already queued, then joins.
class ThreadQueue : public Queue {
  public:
    explicit ThreadQueue(std::size_t threads, std::string label = {});
    ~ThreadQueue() override;

    void async(Task task) override;
    const std::string &label() const { return label_; }

  private:
    void work();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

// The main queue of a command-line program: tasks run when the main thread calls runUntil.
class RunLoopQueue : public Queue {
  public:
    void async(Task task) override;
    // Runs tasks as they arrive until done() holds or the time runs out; returns done().
    bool runUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout);

  private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
};

class ThreadQueues : public Queues {
  public:
    explicit ThreadQueues(std::size_t globalThreads = kDefaultGlobalThreads);

    Queue &main() override { return main_; }
    Queue &global() override { return global_; }
    std::unique_ptr<Queue> makeSerial(const std::string &label) override;

    RunLoopQueue &mainLoop() { return main_; }

    static constexpr std::size_t kDefaultGlobalThreads = 4;

  private:
    RunLoopQueue main_;
    ThreadQueue global_;
};

} // namespace qv::posix
