// Conversion between Foundation objects (property-list and JSON shaped) and the core's qv::Value.
#pragma once

#import <Foundation/Foundation.h>

#include "base/value.h"

namespace qv::darwin {

// Strings, numbers (booleans kept apart), data, dates, arrays, sets (as arrays), dictionaries and NSNull; any
// other object reads as null. Mutable containers keep their mutability.
Value valueFromObject(id object);

// The Foundation object for a value; null becomes NSNull. Containers are made mutable when the value says so.
id objectFromValue(const Value &value);

} // namespace qv::darwin
