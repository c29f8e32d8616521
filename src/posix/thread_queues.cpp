// Thread-backed queues for the command-line tool and the service.
#include "posix/thread_queues.h"

#include <utility>

namespace qv::posix {

ThreadQueue::ThreadQueue(std::size_t threads, std::string label) : label_(std::move(label)) {
    threads_.reserve(threads);
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.emplace_back([this] { work(); });
    }
}

ThreadQueue::~ThreadQueue() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    ready_.notify_all();
    for (auto &thread : threads_) {
        thread.join();
    }
}

void ThreadQueue::async(Task task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    ready_.notify_one();
}

void ThreadQueue::work() {
    while (true) {
        Task task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            ready_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

void RunLoopQueue::async(Task task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    ready_.notify_one();
}

bool RunLoopQueue::runUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        Task task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (!ready_.wait_until(lock, deadline, [this] { return !tasks_.empty(); })) {
                return done();
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
    return true;
}

ThreadQueues::ThreadQueues(std::size_t globalThreads) : global_(globalThreads, "global") {}

std::unique_ptr<Queue> ThreadQueues::makeSerial(const std::string &label) {
    return std::make_unique<ThreadQueue>(1, label);
}

} // namespace qv::posix
