// Runs host-facing work so that neither an Objective-C nor a C++ exception can escape into the host process.
#pragma once

#import <Foundation/Foundation.h>

namespace qv::darwin {

// Runs work; true when it finished without raising.
template <class Work> bool guarded(Work &&work) noexcept {
    @try {
        try {
            work();
            return true;
        } catch (...) {
            return false;
        }
    } @catch (NSException *) {
        return false;
    }
}

} // namespace qv::darwin
