// Installed apps and their icons, read off the system's application proxies and private image lookups.
#include "darwin/adapters/application_proxy_apps.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"

#import <objc/message.h>

namespace qv::darwin {
namespace {

// A text key names the app by bundle identifier, a number by store item identifier.
id proxyForKey(const Value &key) {
    Class proxyClass = objc_getClass("LSApplicationProxy");
    id argument = objectFromValue(key);
    NSString *lookup = nil;
    if ([argument isKindOfClass:NSString.class]) {
        lookup = @"applicationProxyForIdentifier:";
    } else if ([argument isKindOfClass:NSNumber.class]) {
        lookup = @"applicationProxyForItemID:";
    }
    if (proxyClass == nil || lookup == nil) {
        return nil;
    }
    SEL selector = NSSelectorFromString(lookup);
    if (![proxyClass respondsToSelector:selector]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL, id)>(objc_msgSend)(proxyClass, selector, argument);
}

std::optional<std::string> textAnswer(id object, NSString *getter) {
    if (![object respondsToSelector:NSSelectorFromString(getter)]) {
        return std::nullopt;
    }
    return toStdString([object valueForKey:getter]);
}

} // namespace

std::optional<InstalledApp> ApplicationProxyApps::appForKey(const Value &key) const {
    std::optional<InstalledApp> app;
    guarded([&] {
        id proxy = proxyForKey(key);
        if (proxy == nil) {
            return;
        }
        app = InstalledApp{textAnswer(proxy, @"bundleIdentifier").value_or(std::string()),
                           textAnswer(proxy, @"itemName").value_or(std::string()),
                           textAnswer(proxy, @"shortVersionString"), textAnswer(proxy, @"bundleVersion")};
    });
    return app;
}

UIImage *applicationIcon(NSString *bundleIdentifier) {
    UIImage *icon = nil;
    guarded([&] {
        if (bundleIdentifier.length == 0) {
            return;
        }
        const CGFloat scale = UIScreen.mainScreen.scale;
        SEL withFormat = NSSelectorFromString(@"_applicationIconImageForBundleIdentifier:format:scale:");
        SEL withRole = NSSelectorFromString(@"_applicationIconImageForBundleIdentifier:roleIdentifier:format:scale:");
        if ([UIImage respondsToSelector:withFormat]) {
            icon = reinterpret_cast<UIImage *(*)(id, SEL, NSString *, int, CGFloat)>(objc_msgSend)(
                UIImage.class, withFormat, bundleIdentifier, 0, scale);
        } else if ([UIImage respondsToSelector:withRole]) {
            icon = reinterpret_cast<UIImage *(*)(id, SEL, NSString *, NSString *, int, CGFloat)>(objc_msgSend)(
                UIImage.class, withRole, bundleIdentifier, nil, 0, scale);
        }
        if (![icon isKindOfClass:UIImage.class]) {
            icon = nil;
        }
    });
    return icon;
}

} // namespace qv::darwin
