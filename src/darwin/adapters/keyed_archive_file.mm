// Keyed archives of Foundation objects converted from and to the core's values; nothing raised reaches the caller.
#include "darwin/adapters/keyed_archive_file.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"

#import <Foundation/Foundation.h>

namespace qv::darwin {

namespace {

std::string describe(NSError *error, const char *fallback) {
    return toStdString(error.localizedDescription).value_or(fallback);
}

id archivableRoot(const Value &root) {
    id object = objectFromValue(root);
    if ([object isKindOfClass:NSDictionary.class] && ![object isKindOfClass:NSMutableDictionary.class]) {
        return [static_cast<NSDictionary *>(object) mutableCopy];
    }
    return object;
}

} // namespace

ArchiveLoad KeyedArchiveFile::load(const std::string &path) {
    ArchiveLoad loaded{ArchiveLoad::Status::Unreadable, Value(), "the archive could not be read"};
    guarded([&] {
        NSError *failure = nil;
        NSData *bytes = [NSData dataWithContentsOfFile:toNSString(path) options:0 error:&failure];
        if (bytes == nil) {
            loaded.error = describe(failure, "the archive could not be read");
            return;
        }
        loaded.status = ArchiveLoad::Status::Undecodable;
        loaded.error = "the file holds no keyed archive";
        id root = nil;
        @try {
            root = [NSKeyedUnarchiver unarchiveObjectWithData:bytes];
        } @catch (NSException *exception) {
            loaded.error = toStdString(exception.reason).value_or(loaded.error);
            return;
        }
        if (root == nil) {
            return;
        }
        loaded.root = valueFromObject(root);
        loaded.status = ArchiveLoad::Status::Loaded;
        loaded.error.clear();
    });
    return loaded;
}

bool KeyedArchiveFile::save(const std::string &path, const Value &root, std::string *error) {
    std::string failureText = "the archive could not be written";
    bool written = false;
    guarded([&] {
        NSData *bytes = [NSKeyedArchiver archivedDataWithRootObject:archivableRoot(root)];
        NSError *failure = nil;
        written = bytes != nil && [bytes writeToFile:toNSString(path) options:NSDataWritingAtomic error:&failure];
        if (!written) {
            failureText = describe(failure, failureText.c_str());
        }
    });
    if (!written && error != nullptr) {
        *error = failureText;
    }
    return written;
}

} // namespace qv::darwin
