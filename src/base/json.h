// JSON text <-> qv::Value, compact output and a bounded, strict parser, identical on the phone and on Linux.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"

namespace qv {

// Parses one JSON document. Integers that fit in 64 bits become Integer, other numbers Real.
// Nesting deeper than kMaxJsonDepth is rejected rather than recursed into.
constexpr int kMaxJsonDepth = 256;
// A failure is MalformedJson whose detail is one line, e.g. "unexpected character 'x' at offset 12".
Result<Value> parseJson(std::string_view text);

// Compact JSON (no spaces), keys in insertion order. Bytes are written as base64 strings, dates as seconds.
// Non-string dictionary keys are written in their JSON text form as strings.
std::string toJson(const Value &value);

} // namespace qv
