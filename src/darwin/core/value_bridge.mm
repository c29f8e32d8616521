// Foundation object <-> qv::Value conversion used by every phone adapter that hands store data to the core.
#include "darwin/core/value_bridge.h"

#include "darwin/core/strings.h"

namespace qv::darwin {

namespace {

Value numberValue(NSNumber *number) {
    if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) {
        return Value(static_cast<bool>(number.boolValue));
    }
    const char type = number.objCType[0];
    if (type == 'f' || type == 'd') {
        return Value(number.doubleValue);
    }
    return Value(static_cast<long long>(number.longLongValue));
}

} // namespace

Value valueFromObject(id object) {
    if (object == nil || [object isKindOfClass:NSNull.class]) {
        return Value();
    }
    if ([object isKindOfClass:NSString.class]) {
        return Value(toStdStringOrEmpty(object));
    }
    if ([object isKindOfClass:NSNumber.class]) {
        return numberValue(static_cast<NSNumber *>(object));
    }
    if ([object isKindOfClass:NSData.class]) {
        NSData *data = static_cast<NSData *>(object);
        const auto *bytes = static_cast<const std::uint8_t *>(data.bytes);
        return Value(Bytes(bytes, bytes + data.length));
    }
    if ([object isKindOfClass:NSDate.class]) {
        return Value(Date{static_cast<NSDate *>(object).timeIntervalSinceReferenceDate});
    }
    if ([object isKindOfClass:NSArray.class] || [object isKindOfClass:NSSet.class]) {
        Array array;
        array.setMutable([object isKindOfClass:NSMutableArray.class] || [object isKindOfClass:NSMutableSet.class]);
        for (id item in object) {
            array.push_back(valueFromObject(item));
        }
        return Value(std::move(array));
    }
    if ([object isKindOfClass:NSDictionary.class]) {
        NSDictionary *source = static_cast<NSDictionary *>(object);
        Dictionary dictionary;
        dictionary.setMutable([object isKindOfClass:NSMutableDictionary.class]);
        for (id key in source) {
            dictionary.set(valueFromObject(key), valueFromObject(source[key]));
        }
        return Value(std::move(dictionary));
    }
    return Value();
}

id objectFromValue(const Value &value) {
    switch (value.kind()) {
    case Value::Kind::Null:
        return NSNull.null;
    case Value::Kind::Bool:
        return @(*value.asBool());
    case Value::Kind::Integer:
        return @(static_cast<long long>(*value.asInteger()));
    case Value::Kind::Real:
        return @(*value.asReal());
    case Value::Kind::String:
        return toNSString(*value.asString());
    case Value::Kind::Bytes:
        return [NSData dataWithBytes:value.asBytes()->data() length:value.asBytes()->size()];
    case Value::Kind::Date:
        return [NSDate dateWithTimeIntervalSinceReferenceDate:value.asDate()->secondsSinceReferenceDate];
    case Value::Kind::Array: {
        NSMutableArray *array = [NSMutableArray arrayWithCapacity:value.asArray()->size()];
        for (const auto &item : *value.asArray()) {
            [array addObject:objectFromValue(item)];
        }
        return value.asArray()->isMutable() ? array : [array copy];
    }
    case Value::Kind::Dictionary: {
        NSMutableDictionary *dictionary = [NSMutableDictionary dictionaryWithCapacity:value.asDictionary()->size()];
        for (const auto &[key, item] : *value.asDictionary()) {
            dictionary[objectFromValue(key)] = objectFromValue(item);
        }
        return value.asDictionary()->isMutable() ? dictionary : [dictionary copy];
    }
    }
    return NSNull.null;
}

} // namespace qv::darwin
