// qv::Value: the one dynamic value (property-list / JSON / keyed-archive shaped) that the core exchanges with adapters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace qv {

using Bytes = std::vector<std::uint8_t>;

// A point in time as the platform stores it: seconds since 2001-01-01 00:00:00 UTC.
struct Date {
    double secondsSinceReferenceDate = 0;
    friend bool operator==(const Date &, const Date &) = default;
};

class Array;
class Dictionary;

// Deep-copying owner of a heap object, so that Value can hold the recursive containers by value.
template <class T> class Boxed {
  public:
    explicit Boxed(std::unique_ptr<T> object) : object_(std::move(object)) {}
    Boxed(const Boxed &other) : object_(std::make_unique<T>(*other.object_)) {}
    Boxed(Boxed &&) noexcept = default;
    Boxed &operator=(const Boxed &other) {
        if (this != &other) {
            object_ = std::make_unique<T>(*other.object_);
        }
        return *this;
    }
    Boxed &operator=(Boxed &&) noexcept = default;
    ~Boxed() = default;
    T &get() { return *object_; }
    const T &get() const { return *object_; }

  private:
    std::unique_ptr<T> object_;
};

class Value {
  public:
    enum class Kind { Null, Bool, Integer, Real, String, Bytes, Date, Array, Dictionary };

    Value();
    Value(std::nullptr_t);
    Value(bool boolean);
    Value(int integer);
    Value(long integer);
    Value(long long integer);
    Value(unsigned integer);
    Value(double real);
    Value(const char *text);
    Value(std::string text);
    Value(std::string_view text);
    Value(Bytes bytes);
    Value(Date date);
    Value(Array array);
    Value(Dictionary dictionary);

    Value(const Value &);
    Value(Value &&) noexcept;
    Value &operator=(const Value &);
    Value &operator=(Value &&) noexcept;
    ~Value();

    Kind kind() const { return static_cast<Kind>(storage_.index()); }
    bool isNull() const { return kind() == Kind::Null; }
    bool isNumber() const { return kind() == Kind::Integer || kind() == Kind::Real || kind() == Kind::Bool; }

    // Typed access: a pointer to the content when the value is of that kind, else nullptr.
    const bool *asBool() const { return std::get_if<bool>(&storage_); }
    const std::int64_t *asInteger() const { return std::get_if<std::int64_t>(&storage_); }
    const double *asReal() const { return std::get_if<double>(&storage_); }
    const std::string *asString() const { return std::get_if<std::string>(&storage_); }
    const Bytes *asBytes() const { return std::get_if<Bytes>(&storage_); }
    const Date *asDate() const { return std::get_if<Date>(&storage_); }
    const Array *asArray() const;
    Array *asArray();
    const Dictionary *asDictionary() const;
    Dictionary *asDictionary();

    // Path lookup that never fails: the member under a text key of a dictionary, or the element at an index of an
    // array; anything missing on the way yields the shared null, so value["offers"][0]["version"]["display"]
    // reads safely whatever shape the value has.
    const Value &operator[](std::string_view key) const;
    const Value &operator[](std::size_t index) const;
    // The one shared null those lookups return; it lives as long as the process.
    static const Value &null();

    // The value as a truth value the way the platform's boolValue reads a number; false for non-numbers.
    bool truthy() const;
    // The numeric value as a 64-bit integer (reals truncated, booleans 0/1); nothing for non-numbers.
    bool toInteger(std::int64_t &out) const;

    // Equality as the platform's isEqual: numbers compare by value (an integer equals an equal real).
    friend bool operator==(const Value &left, const Value &right);
    std::size_t hash() const;

  private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Bytes, Date, Boxed<Array>, Boxed<Dictionary>>
        storage_;
};

struct ValueHash {
    std::size_t operator()(const Value &value) const { return value.hash(); }
};

class Array {
  public:
    Array() = default;
    Array(std::initializer_list<Value> items) : items_(items) {}
    explicit Array(std::vector<Value> items) : items_(std::move(items)) {}

    bool isMutable() const { return mutable_; }
    void setMutable(bool isMutable) { mutable_ = isMutable; }

    std::size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }
    const Value &operator[](std::size_t index) const { return items_[index]; }
    Value &operator[](std::size_t index) { return items_[index]; }
    void push_back(Value value) { items_.push_back(std::move(value)); }
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }
    auto begin() { return items_.begin(); }
    auto end() { return items_.end(); }
    const std::vector<Value> &items() const { return items_; }
    std::vector<Value> &items() { return items_; }

    friend bool operator==(const Array &left, const Array &right) { return left.items_ == right.items_; }

  private:
    std::vector<Value> items_;
    bool mutable_ = false;
};

// Keys in insertion order, any Value as key, hashed lookup.
class Dictionary {
  public:
    using Entry = std::pair<Value, Value>;

    Dictionary() = default;
    Dictionary(std::initializer_list<Entry> entries);

    bool isMutable() const { return mutable_; }
    void setMutable(bool isMutable) { mutable_ = isMutable; }

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    const Value *find(const Value &key) const;
    Value *find(const Value &key);
    bool contains(const Value &key) const { return find(key) != nullptr; }
    // Replaces the value of an existing key in place (keeping its position) or appends a new entry.
    void set(Value key, Value value);
    bool erase(const Value &key);
    void clear();

    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    const std::vector<Entry> &entries() const { return entries_; }

    // Same keys and values, order ignored, as the platform compares dictionaries.
    friend bool operator==(const Dictionary &left, const Dictionary &right);

  private:
    void reindex();

    std::vector<Entry> entries_;
    std::unordered_map<Value, std::size_t, ValueHash> index_;
    bool mutable_ = false;
};

// ---- inline definitions that need the complete container types ----

inline Value::Value() = default;
inline Value::Value(std::nullptr_t) {}
inline Value::Value(bool boolean) : storage_(boolean) {}
inline Value::Value(int integer) : storage_(static_cast<std::int64_t>(integer)) {}
inline Value::Value(long integer) : storage_(static_cast<std::int64_t>(integer)) {}
inline Value::Value(long long integer) : storage_(static_cast<std::int64_t>(integer)) {}
inline Value::Value(unsigned integer) : storage_(static_cast<std::int64_t>(integer)) {}
inline Value::Value(double real) : storage_(real) {}
inline Value::Value(const char *text) : storage_(std::string(text)) {}
inline Value::Value(std::string text) : storage_(std::move(text)) {}
inline Value::Value(std::string_view text) : storage_(std::string(text)) {}
inline Value::Value(Bytes bytes) : storage_(std::move(bytes)) {}
inline Value::Value(Date date) : storage_(date) {}
inline Value::Value(Array array) : storage_(Boxed<Array>(std::make_unique<Array>(std::move(array)))) {}
inline Value::Value(Dictionary dictionary)
    : storage_(Boxed<Dictionary>(std::make_unique<Dictionary>(std::move(dictionary)))) {}
inline Value::Value(const Value &) = default;
inline Value::Value(Value &&) noexcept = default;
inline Value &Value::operator=(const Value &) = default;
inline Value &Value::operator=(Value &&) noexcept = default;
inline Value::~Value() = default;

inline const Array *Value::asArray() const {
    const auto *boxed = std::get_if<Boxed<Array>>(&storage_);
    return boxed ? &boxed->get() : nullptr;
}
inline Array *Value::asArray() {
    auto *boxed = std::get_if<Boxed<Array>>(&storage_);
    return boxed ? &boxed->get() : nullptr;
}
inline const Dictionary *Value::asDictionary() const {
    const auto *boxed = std::get_if<Boxed<Dictionary>>(&storage_);
    return boxed ? &boxed->get() : nullptr;
}
inline Dictionary *Value::asDictionary() {
    auto *boxed = std::get_if<Boxed<Dictionary>>(&storage_);
    return boxed ? &boxed->get() : nullptr;
}

} // namespace qv
