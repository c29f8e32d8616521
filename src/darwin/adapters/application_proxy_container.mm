// Looks the application proxy class up by name, since it is private to the system and not linked against.
#include "darwin/adapters/application_proxy_container.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>
#import <objc/message.h>

namespace qv::darwin {

namespace {

NSString *const kApplicationProxyClass = @"LSApplicationProxy";
NSString *const kAppStoreIdentifier = @"com.apple.AppStore";

} // namespace

std::optional<std::string> ApplicationProxyContainer::dataContainerDirectory() const {
    std::optional<std::string> directory;
    guarded([&] {
        Class proxyClass = NSClassFromString(kApplicationProxyClass);
        SEL proxyForIdentifier = NSSelectorFromString(@"applicationProxyForIdentifier:");
        if (proxyClass == nil || ![proxyClass respondsToSelector:proxyForIdentifier]) {
            return;
        }
        id proxy = reinterpret_cast<id (*)(id, SEL, NSString *)>(objc_msgSend)(proxyClass, proxyForIdentifier,
                                                                               kAppStoreIdentifier);
        SEL containerURL = NSSelectorFromString(@"containerURL");
        if (proxy == nil || ![proxy respondsToSelector:containerURL]) {
            return;
        }
        id url = reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(proxy, containerURL);
        if (![url isKindOfClass:NSURL.class]) {
            return;
        }
        directory = toStdString(static_cast<NSURL *>(url).path);
    });
    return directory;
}

} // namespace qv::darwin
