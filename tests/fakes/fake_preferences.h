// In-memory Preferences for tests.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/preferences.h"

namespace qv {

class FakePreferences : public Preferences {
  public:
    std::optional<Value> valueForKey(const std::string &key) const override {
        const auto found = values_.find(key);
        if (found == values_.end()) {
            return std::nullopt;
        }
        return found->second;
    }

    void set(const std::string &key, Value value) { values_[key] = std::move(value); }

  private:
    std::map<std::string, Value> values_;
};

} // namespace qv
