// In-memory Preferences for tests: stored values, registered defaults, and how often they were flushed.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/preferences.h"

namespace qv {

class FakePreferences : public Preferences {
  public:
    std::optional<Value> valueForKey(const std::string &key) const override {
        if (const auto found = values_.find(key); found != values_.end()) {
            return found->second;
        }
        if (const Value *fallback = defaults_.find(Value(key))) {
            return *fallback;
        }
        return std::nullopt;
    }

    void setValue(const std::string &key, Value value) override { values_[key] = std::move(value); }
    Result<void> flush() override {
        ++flushes;
        flushedValues = values_;
        return failFlush ? fail(ErrorCode::FileUnwritable, "flush refused") : Result<void>();
    }
    void registerDefaults(const Dictionary &defaults) override {
        for (const auto &[key, value] : defaults) {
            defaults_.set(key, value);
        }
    }

    void set(const std::string &key, Value value) { values_[key] = std::move(value); }
    bool stored(const std::string &key) const { return values_.count(key) != 0; }

    int flushes = 0;
    bool failFlush = false;
    std::map<std::string, Value> flushedValues; // what the last flush wrote

  private:
    std::map<std::string, Value> values_;
    Dictionary defaults_;
};

} // namespace qv
