// Conversions between Foundation strings/objects and the core's UTF-8 strings, in one place for the phone side.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

namespace qv::darwin {

// The UTF-8 text of a string; nothing for nil or for an object that is not a string. A string that cannot be
// encoded whole (an unpaired surrogate) is converted lossily instead of failing: hooks receive whatever the
// host passes them.
inline std::optional<std::string> toStdString(id object) {
    if (![object isKindOfClass:NSString.class]) {
        return std::nullopt;
    }
    NSString *text = static_cast<NSString *>(object);
    if (const char *bytes = text.UTF8String) {
        return std::string(bytes);
    }
    NSData *lossy = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    if (lossy == nil) {
        return std::string();
    }
    return std::string(static_cast<const char *>(lossy.bytes), lossy.length);
}

// The text of a string, or empty text for nil and for anything else.
inline std::string toStdStringOrEmpty(id object) {
    return toStdString(object).value_or(std::string());
}

// The string for UTF-8 text; nil when the bytes are not UTF-8.
inline NSString *toNSStringIfValid(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

// The string for UTF-8 text; never nil, so it is safe in collection literals (invalid bytes give an empty string).
inline NSString *toNSString(std::string_view text) {
    return toNSStringIfValid(text) ?: @"";
}

// The text form that the formatter's %@ gives an object (its description); nothing for nil.
inline std::optional<std::string> textForm(id object) {
    if (object == nil) {
        return std::nullopt;
    }
    return toStdString([NSString stringWithFormat:@"%@", object]);
}

} // namespace qv::darwin
