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

Result<Value> KeyedArchiveFile::load(const std::string &path) {
    Result<Value> loaded = fail(ErrorCode::FileUnreadable, "the archive could not be read");
    guarded([&] {
        NSError *failure = nil;
        NSData *bytes = [NSData dataWithContentsOfFile:toNSString(path) options:0 error:&failure];
        if (bytes == nil) {
            loaded = fail(ErrorCode::FileUnreadable, describe(failure, "the archive could not be read"));
            return;
        }
        loaded = fail(ErrorCode::MalformedArchive, "the file holds no keyed archive");
        id root = nil;
        @try {
            root = [NSKeyedUnarchiver unarchiveObjectWithData:bytes];
        } @catch (NSException *exception) {
            loaded = fail(ErrorCode::MalformedArchive, toStdString(exception.reason).value_or(loaded.error().detail));
            return;
        }
        if (root != nil) {
            loaded = valueFromObject(root);
        }
    });
    return loaded;
}

Result<void> KeyedArchiveFile::save(const std::string &path, const Value &root) {
    Result<void> saved = fail(ErrorCode::FileUnwritable, "the archive could not be written");
    guarded([&] {
        NSData *bytes = [NSKeyedArchiver archivedDataWithRootObject:archivableRoot(root)];
        if (bytes == nil) {
            saved = fail(ErrorCode::UnencodableValue, "the value could not be archived");
            return;
        }
        NSError *failure = nil;
        if ([bytes writeToFile:toNSString(path) options:NSDataWritingAtomic error:&failure]) {
            saved = Result<void>();
        } else {
            saved = fail(ErrorCode::FileUnwritable, describe(failure, "the archive could not be written"));
        }
    });
    return saved;
}

} // namespace qv::darwin
