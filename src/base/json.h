// JSON text <-> qv::Value, compact output and a bounded, strict parser, identical on the phone and on Linux.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace qv {

struct JsonError {
    std::string message; // one line, e.g. "unexpected character 'x' at offset 12"
    std::size_t offset = 0;
};

// Parses one JSON document. Integers that fit in 64 bits become Integer, other numbers Real.
// Nesting deeper than kMaxJsonDepth is rejected rather than recursed into.
constexpr int kMaxJsonDepth = 256;
std::optional<Value> parseJson(std::string_view text, JsonError *error = nullptr);

// Compact JSON (no spaces), keys in insertion order. Bytes are written as base64 strings, dates as seconds.
// Non-string dictionary keys are written in their JSON text form as strings.
std::string toJson(const Value &value);
std::string toPrettyJson(const Value &value);

} // namespace qv
