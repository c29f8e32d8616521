// Conversions between Foundation strings/objects and the core's UTF-8 strings, in one place for the phone side.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

namespace qv::darwin {

inline std::optional<std::string> toStdString(NSString *text) {
    if (text == nil) {
        return std::nullopt;
    }
    const char *bytes = text.UTF8String;
    return bytes == nullptr ? std::string() : std::string(bytes);
}

inline NSString *toNSString(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding] ?: @"";
}

// The text form that the formatter's %@ gives an object (its description); nothing for nil.
inline std::optional<std::string> textForm(id object) {
    if (object == nil) {
        return std::nullopt;
    }
    return toStdString([NSString stringWithFormat:@"%@", object]);
}

} // namespace qv::darwin
