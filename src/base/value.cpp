// Equality, hashing and dictionary bookkeeping of qv::Value.
#include "base/value.h"

#include <cmath>
#include <functional>
#include <limits>

namespace qv {

namespace {

// An integral real equals the integer of the same value, so both must hash alike.
bool realAsInteger(double real, std::int64_t &out) {
    if (!std::isfinite(real) || std::trunc(real) != real || real < -9.2233720368547758e18 ||
        real >= 9.2233720368547758e18) {
        return false;
    }
    out = static_cast<std::int64_t>(real);
    return true;
}

std::size_t combine(std::size_t seed, std::size_t value) {
    return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6U) + (seed >> 2U));
}

} // namespace

const Value &Value::null() {
    // Never destroyed: lookups may run on store threads while the process exits.
    static const Value *const kNull = new Value();
    return *kNull;
}

const Value &Value::operator[](std::string_view key) const {
    const Dictionary *dictionary = asDictionary();
    const Value *member = dictionary != nullptr ? dictionary->find(Value(key)) : nullptr;
    return member != nullptr ? *member : null();
}

const Value &Value::operator[](std::size_t index) const {
    const Array *array = asArray();
    return array != nullptr && index < array->size() ? (*array)[index] : null();
}

bool Value::truthy() const {
    if (const auto *boolean = asBool()) {
        return *boolean;
    }
    if (const auto *integer = asInteger()) {
        return *integer != 0;
    }
    if (const auto *real = asReal()) {
        return *real != 0.0;
    }
    return false;
}

bool Value::toInteger(std::int64_t &out) const {
    if (const auto *integer = asInteger()) {
        out = *integer;
        return true;
    }
    if (const auto *boolean = asBool()) {
        out = *boolean ? 1 : 0;
        return true;
    }
    if (const auto *real = asReal()) {
        if (!std::isfinite(*real)) {
            return false;
        }
        if (*real >= 9.2233720368547758e18) {
            out = std::numeric_limits<std::int64_t>::max();
        } else if (*real < -9.2233720368547758e18) {
            out = std::numeric_limits<std::int64_t>::min();
        } else {
            out = static_cast<std::int64_t>(*real);
        }
        return true;
    }
    return false;
}

bool operator==(const Value &left, const Value &right) {
    const auto leftKind = left.kind();
    const auto rightKind = right.kind();
    if ((leftKind == Value::Kind::Integer && rightKind == Value::Kind::Real) ||
        (leftKind == Value::Kind::Real && rightKind == Value::Kind::Integer)) {
        const double leftReal = left.asReal() ? *left.asReal() : static_cast<double>(*left.asInteger());
        const double rightReal = right.asReal() ? *right.asReal() : static_cast<double>(*right.asInteger());
        return leftReal == rightReal;
    }
    if (leftKind != rightKind) {
        return false;
    }
    switch (leftKind) {
    case Value::Kind::Null:
        return true;
    case Value::Kind::Bool:
        return *left.asBool() == *right.asBool();
    case Value::Kind::Integer:
        return *left.asInteger() == *right.asInteger();
    case Value::Kind::Real:
        return *left.asReal() == *right.asReal();
    case Value::Kind::String:
        return *left.asString() == *right.asString();
    case Value::Kind::Bytes:
        return *left.asBytes() == *right.asBytes();
    case Value::Kind::Date:
        return *left.asDate() == *right.asDate();
    case Value::Kind::Array:
        return *left.asArray() == *right.asArray();
    case Value::Kind::Dictionary:
        return *left.asDictionary() == *right.asDictionary();
    }
    return false;
}

std::size_t Value::hash() const {
    switch (kind()) {
    case Kind::Null:
        return 0x5bd1e995U;
    case Kind::Bool:
        return *asBool() ? 0x27d4eb2dU : 0x165667b1U;
    case Kind::Integer:
        return std::hash<std::int64_t>{}(*asInteger());
    case Kind::Real: {
        std::int64_t integral = 0;
        if (realAsInteger(*asReal(), integral)) {
            return std::hash<std::int64_t>{}(integral);
        }
        return std::hash<double>{}(*asReal());
    }
    case Kind::String:
        return std::hash<std::string>{}(*asString());
    case Kind::Bytes:
        return std::hash<std::string_view>{}(
            std::string_view(reinterpret_cast<const char *>(asBytes()->data()), asBytes()->size()));
    case Kind::Date:
        return std::hash<double>{}(asDate()->secondsSinceReferenceDate);
    case Kind::Array: {
        std::size_t seed = asArray()->size();
        for (const auto &item : *asArray()) {
            seed = combine(seed, item.hash());
        }
        return seed;
    }
    case Kind::Dictionary: {
        // Order-independent, matching order-independent equality.
        std::size_t sum = asDictionary()->size();
        for (const auto &[key, value] : *asDictionary()) {
            sum += combine(key.hash(), value.hash());
        }
        return sum;
    }
    }
    return 0;
}

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const auto &[key, value] : entries) {
        set(key, value);
    }
}

const Value *Dictionary::find(const Value &key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &entries_[found->second].second;
}

Value *Dictionary::find(const Value &key) {
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &entries_[found->second].second;
}

void Dictionary::set(Value key, Value value) {
    const auto found = index_.find(key);
    if (found != index_.end()) {
        entries_[found->second].second = std::move(value);
        return;
    }
    index_.emplace(key, entries_.size());
    entries_.emplace_back(std::move(key), std::move(value));
}

bool Dictionary::erase(const Value &key) {
    const auto found = index_.find(key);
    if (found == index_.end()) {
        return false;
    }
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(found->second));
    reindex();
    return true;
}

void Dictionary::clear() {
    entries_.clear();
    index_.clear();
}

void Dictionary::reindex() {
    index_.clear();
    index_.reserve(entries_.size());
    for (std::size_t position = 0; position < entries_.size(); ++position) {
        index_.emplace(entries_[position].first, position);
    }
}

bool operator==(const Dictionary &left, const Dictionary &right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (const auto &[key, value] : left) {
        const Value *other = right.find(key);
        if (other == nullptr || !(*other == value)) {
            return false;
        }
    }
    return true;
}

} // namespace qv
