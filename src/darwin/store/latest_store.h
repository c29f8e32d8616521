// The redesigned store's most recent store object, answered by the sharedStore class method the library adds.
#pragma once

#import <Foundation/Foundation.h>

#include <mutex>

namespace qv::darwin {

// Locked because the store calls in from its own threads.
class LatestStore {
  public:
    void remember(id store) {
        const std::lock_guard lock(mutex_);
        store_ = store;
    }
    id current() {
        const std::lock_guard lock(mutex_);
        return store_;
    }

  private:
    std::mutex mutex_;
    id store_ = nil;
};

} // namespace qv::darwin
