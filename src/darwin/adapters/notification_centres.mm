// Posts by name with no object and no user information; a centre that raises is ignored.
#include "darwin/adapters/notification_centres.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

namespace qv::darwin {

void NotificationCentres::postSystemWide(const std::string &name) {
    guarded([&] {
        NSString *notification = toNSString(name);
        CFNotificationCenterPostNotification(CFNotificationCenterGetDarwinNotifyCenter(),
                                             (__bridge CFStringRef)notification, nullptr, nullptr, true);
    });
}

void NotificationCentres::postLocal(const std::string &name) {
    guarded([&] { [NSNotificationCenter.defaultCenter postNotificationName:toNSString(name) object:nil]; });
}

} // namespace qv::darwin
