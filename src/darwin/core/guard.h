// Runs host-facing work so that neither an Objective-C nor a C++ exception can escape into the host process.
#pragma once

#import <Foundation/Foundation.h>

#include <exception>
#include <typeinfo>

namespace qv::darwin {

// Leaves one line in the device log for each distinct fault that guarded swallowed (see core/fault_log.h).
void reportSwallowedFault(const char *name, const char *reason) noexcept;

// Runs work; true when it finished without raising. What it raised is dropped, and written to the log once.
template <class Work> bool guarded(Work &&work) noexcept {
    @try {
        try {
            work();
            return true;
        } catch (const std::exception &exception) {
            reportSwallowedFault(typeid(exception).name(), exception.what());
            return false;
        } catch (...) {
            reportSwallowedFault("C++ exception", "of a type that is not std::exception");
            return false;
        }
    } @catch (NSException *exception) {
        @try {
            reportSwallowedFault(exception.name.UTF8String ?: "NSException", exception.reason.UTF8String ?: "");
        } @catch (NSException *) {
        }
        return false;
    }
}

} // namespace qv::darwin
