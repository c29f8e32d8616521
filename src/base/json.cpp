// A small strict JSON reader and writer over qv::Value (no dependency, so the phone build can use it too).
#include "base/json.h"

#include "base/text.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace qv {

namespace {

class Parser {
  public:
    explicit Parser(std::string_view text) : text_(text) {}

    Result<Value> document() {
        skipSpace();
        auto value = parseValue(0);
        if (value) {
            skipSpace();
            if (position_ != text_.size()) {
                fail("unexpected text after the document");
                value.reset();
            }
        }
        if (!value) {
            return qv::fail(ErrorCode::MalformedJson, message_);
        }
        return std::move(*value);
    }

  private:
    std::optional<Value> parseValue(int depth) {
        if (depth > kMaxJsonDepth) {
            return fail("nesting is too deep");
        }
        if (position_ >= text_.size()) {
            return fail("unexpected end of text");
        }
        const char c = text_[position_];
        switch (c) {
        case '{':
            return parseObject(depth);
        case '[':
            return parseArray(depth);
        case '"': {
            std::string text;
            if (!parseString(text)) {
                return std::nullopt;
            }
            return Value(std::move(text));
        }
        case 't':
            return literal("true", Value(true));
        case 'f':
            return literal("false", Value(false));
        case 'n':
            return literal("null", Value());
        default:
            if (c == '-' || (c >= '0' && c <= '9')) {
                return parseNumber();
            }
            return fail(std::string("unexpected character '") + c + "'");
        }
    }

    std::optional<Value> parseObject(int depth) {
        ++position_;
        Dictionary dictionary;
        skipSpace();
        if (consume('}')) {
            return Value(std::move(dictionary));
        }
        while (true) {
            skipSpace();
            if (position_ >= text_.size() || text_[position_] != '"') {
                return fail("expected a string key");
            }
            std::string key;
            if (!parseString(key)) {
                return std::nullopt;
            }
            skipSpace();
            if (!consume(':')) {
                return fail("expected ':' after a key");
            }
            skipSpace();
            auto value = parseValue(depth + 1);
            if (!value) {
                return std::nullopt;
            }
            dictionary.set(Value(std::move(key)), std::move(*value));
            skipSpace();
            if (consume('}')) {
                return Value(std::move(dictionary));
            }
            if (!consume(',')) {
                return fail("expected ',' or '}' in an object");
            }
        }
    }

    std::optional<Value> parseArray(int depth) {
        ++position_;
        Array array;
        skipSpace();
        if (consume(']')) {
            return Value(std::move(array));
        }
        while (true) {
            skipSpace();
            auto value = parseValue(depth + 1);
            if (!value) {
                return std::nullopt;
            }
            array.push_back(std::move(*value));
            skipSpace();
            if (consume(']')) {
                return Value(std::move(array));
            }
            if (!consume(',')) {
                return fail("expected ',' or ']' in an array");
            }
        }
    }

    bool parseHex4(unsigned &out) {
        if (text_.size() - position_ < 4) {
            fail("truncated \\u escape");
            return false;
        }
        out = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[position_++];
            out <<= 4U;
            if (c >= '0' && c <= '9') {
                out |= static_cast<unsigned>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                out |= static_cast<unsigned>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                out |= static_cast<unsigned>(c - 'A' + 10);
            } else {
                fail("bad hex digit in \\u escape");
                return false;
            }
        }
        return true;
    }

    bool parseString(std::string &out) {
        ++position_;
        while (position_ < text_.size()) {
            const char c = text_[position_++];
            if (c == '"') {
                return true;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                fail("control character in a string");
                return false;
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            if (position_ >= text_.size()) {
                break;
            }
            const char escape = text_[position_++];
            switch (escape) {
            case '"':
            case '\\':
            case '/':
                out += escape;
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                unsigned codePoint = 0;
                if (!parseHex4(codePoint)) {
                    return false;
                }
                if (codePoint >= 0xD800 && codePoint <= 0xDBFF) {
                    unsigned low = 0;
                    if (position_ + 1 < text_.size() && text_[position_] == '\\' && text_[position_ + 1] == 'u') {
                        position_ += 2;
                        if (!parseHex4(low)) {
                            return false;
                        }
                    }
                    if (low < 0xDC00 || low > 0xDFFF) {
                        fail("unpaired surrogate in \\u escape");
                        return false;
                    }
                    codePoint = 0x10000 + ((codePoint - 0xD800) << 10U) + (low - 0xDC00);
                } else if (codePoint >= 0xDC00 && codePoint <= 0xDFFF) {
                    fail("unpaired surrogate in \\u escape");
                    return false;
                }
                appendUtf8(out, codePoint);
                break;
            }
            default:
                fail(std::string("bad escape '\\") + escape + "'");
                return false;
            }
        }
        fail("unterminated string");
        return false;
    }

    std::optional<Value> parseNumber() {
        const std::size_t start = position_;
        bool integral = true;
        consume('-');
        if (!digits()) {
            return fail("bad number");
        }
        if (text_[start + (text_[start] == '-' ? 1 : 0)] == '0' &&
            position_ - start > (text_[start] == '-' ? 2U : 1U)) {
            return fail("leading zero in a number");
        }
        if (consume('.')) {
            integral = false;
            if (!digits()) {
                return fail("bad fraction");
            }
        }
        if (position_ < text_.size() && (text_[position_] == 'e' || text_[position_] == 'E')) {
            integral = false;
            ++position_;
            if (!consume('+')) {
                consume('-');
            }
            if (!digits()) {
                return fail("bad exponent");
            }
        }
        const std::string number(text_.substr(start, position_ - start));
        if (integral) {
            errno = 0;
            char *end = nullptr;
            const long long parsed = std::strtoll(number.c_str(), &end, 10);
            if (errno == 0 && end == number.c_str() + number.size()) {
                return Value(static_cast<std::int64_t>(parsed));
            }
        }
        const double real = std::strtod(number.c_str(), nullptr);
        if (!std::isfinite(real)) {
            return fail("number out of range");
        }
        return Value(real);
    }

    bool digits() {
        const std::size_t start = position_;
        while (position_ < text_.size() && text_[position_] >= '0' && text_[position_] <= '9') {
            ++position_;
        }
        return position_ > start;
    }

    std::optional<Value> literal(std::string_view word, Value value) {
        if (text_.substr(position_, word.size()) != word) {
            return fail("bad literal");
        }
        position_ += word.size();
        return value;
    }

    void skipSpace() {
        while (position_ < text_.size() && (text_[position_] == ' ' || text_[position_] == '\t' ||
                                            text_[position_] == '\n' || text_[position_] == '\r')) {
            ++position_;
        }
    }

    bool consume(char c) {
        if (position_ < text_.size() && text_[position_] == c) {
            ++position_;
            return true;
        }
        return false;
    }

    std::nullopt_t fail(std::string message) {
        if (message_.empty()) {
            message_ = std::move(message) + " at offset " + std::to_string(position_);
        }
        return std::nullopt;
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::string message_;
};

void writeString(std::string &out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
                out += escape;
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

std::string formatReal(double real) {
    if (!std::isfinite(real)) {
        return "null";
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.15g", real);
    if (std::strtod(buffer, nullptr) != real) {
        std::snprintf(buffer, sizeof buffer, "%.17g", real);
    }
    return buffer;
}

std::string base64(const Bytes &bytes) {
    static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const unsigned chunk = (static_cast<unsigned>(bytes[i]) << 16U) |
                               (i + 1 < bytes.size() ? static_cast<unsigned>(bytes[i + 1]) << 8U : 0U) |
                               (i + 2 < bytes.size() ? static_cast<unsigned>(bytes[i + 2]) : 0U);
        out += kAlphabet[(chunk >> 18U) & 63U];
        out += kAlphabet[(chunk >> 12U) & 63U];
        out += i + 1 < bytes.size() ? kAlphabet[(chunk >> 6U) & 63U] : '=';
        out += i + 2 < bytes.size() ? kAlphabet[chunk & 63U] : '=';
    }
    return out;
}

void write(std::string &out, const Value &value) {
    switch (value.kind()) {
    case Value::Kind::Null:
        out += "null";
        break;
    case Value::Kind::Bool:
        out += *value.asBool() ? "true" : "false";
        break;
    case Value::Kind::Integer:
        out += std::to_string(*value.asInteger());
        break;
    case Value::Kind::Real:
        out += formatReal(*value.asReal());
        break;
    case Value::Kind::String:
        writeString(out, *value.asString());
        break;
    case Value::Kind::Bytes:
        writeString(out, base64(*value.asBytes()));
        break;
    case Value::Kind::Date:
        out += formatReal(value.asDate()->secondsSinceReferenceDate);
        break;
    case Value::Kind::Array: {
        const Array &array = *value.asArray();
        out += '[';
        bool first = true;
        for (const auto &item : array) {
            if (!first) {
                out += ',';
            }
            first = false;
            write(out, item);
        }
        out += ']';
        break;
    }
    case Value::Kind::Dictionary: {
        const Dictionary &dictionary = *value.asDictionary();
        out += '{';
        bool first = true;
        for (const auto &[key, item] : dictionary) {
            if (!first) {
                out += ',';
            }
            first = false;
            if (const auto *text = key.asString()) {
                writeString(out, *text);
            } else {
                std::string keyText;
                write(keyText, key);
                writeString(out, keyText);
            }
            out += ':';
            write(out, item);
        }
        out += '}';
        break;
    }
    }
}

} // namespace

Result<Value> parseJson(std::string_view text) {
    return Parser(text).document();
}

std::string toJson(const Value &value) {
    std::string out;
    write(out, value);
    return out;
}

} // namespace qv
