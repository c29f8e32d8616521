// The file manager and NSBundle behind the ResourceFiles port; nothing here lets an exception reach the caller.
#include "darwin/adapters/bundle_files.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>

namespace qv::darwin {

bool BundleFiles::fileExists(const std::string &path) {
    bool exists = false;
    guarded([&] { exists = [NSFileManager.defaultManager fileExistsAtPath:toNSString(path)]; });
    return exists;
}

std::optional<std::string> BundleFiles::localizedString(const std::string &bundlePath, const std::string &key) {
    std::optional<std::string> text;
    guarded([&] {
        NSBundle *bundle = [NSBundle bundleWithPath:toNSString(bundlePath)];
        NSString *keyText = toNSString(key);
        text = toStdString([bundle localizedStringForKey:keyText value:keyText table:nil]);
    });
    return text;
}

std::optional<std::string> BundleFiles::pathForResource(const std::string &bundlePath, const std::string &name,
                                                        const std::string &type) {
    std::optional<std::string> path;
    guarded([&] {
        NSBundle *bundle = [NSBundle bundleWithPath:toNSString(bundlePath)];
        path = toStdString([bundle pathForResource:toNSString(name) ofType:toNSString(type)]);
    });
    return path;
}

} // namespace qv::darwin
