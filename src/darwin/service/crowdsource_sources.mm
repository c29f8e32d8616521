// Reading installed apps' metadata files and older store items for the crowdsourcing reports; deciding nothing.
#include "darwin/service/crowdsource_sources.h"

#include "darwin/core/guard.h"
#include "darwin/core/value_bridge.h"

#import <objc/message.h>
#import <objc/runtime.h>

namespace qv::darwin {
namespace {

id answer(id object, NSString *getter) {
    return [object respondsToSelector:NSSelectorFromString(getter)] ? [object valueForKey:getter] : nil;
}

NSArray *installedApplicationProxies() {
    Class workspaceClass = objc_getClass("LSApplicationWorkspace");
    SEL defaultWorkspace = NSSelectorFromString(@"defaultWorkspace");
    if (workspaceClass == nil || ![workspaceClass respondsToSelector:defaultWorkspace]) {
        return nil;
    }
    id workspace = reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(workspaceClass, defaultWorkspace);
    id proxies = answer(workspace, @"allInstalledApplications");
    return [proxies isKindOfClass:NSArray.class] ? proxies : nil;
}

} // namespace

std::vector<Value> installedAppsMetadata() {
    std::vector<Value> all;
    guarded([&] {
        for (id proxy in installedApplicationProxies()) {
            @autoreleasepool {
                NSURL *container = answer(proxy, @"bundleContainerURL");
                if (![container isKindOfClass:NSURL.class]) {
                    continue;
                }
                NSDictionary *metadata = [NSDictionary
                    dictionaryWithContentsOfURL:[container URLByAppendingPathComponent:@"iTunesMetadata.plist"]];
                if ([metadata isKindOfClass:NSDictionary.class]) {
                    all.push_back(valueFromObject(metadata));
                }
            }
        }
    });
    return all;
}

Value storeItemOf(id item) {
    Value made;
    guarded([&] {
        id identifier = answer(item, @"storeItemIdentifier") ?: answer(item, @"itemIdentifier");
        id bundleId = answer(item, @"bundleIdentifier") ?: answer(item, @"bundleID");
        id name = answer(item, @"title") ?: answer(item, @"itemName");
        id display = answer(item, @"versionString");
        id externalId = answer(item, @"versionIdentifier");
        if (identifier == nil || bundleId == nil || name == nil || display == nil || externalId == nil) {
            return;
        }
        NSDictionary *version = @{@"display" : display, @"externalId" : externalId};
        made = valueFromObject(
            @{@"id" : identifier,
              @"bundleId" : bundleId,
              @"name" : name,
              @"offers" : @[ @{@"version" : version} ]});
    });
    return made;
}

} // namespace qv::darwin
