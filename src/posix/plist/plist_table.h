// A property list as a flat table of objects that refer to each other by position: what both readers produce and
// what the unarchiver walks, so that nothing recurses over the structure of hostile input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace qv::posix::plist {

struct PlistObject {
    enum class Type : unsigned char { Scalar, Uid, Array, Dictionary };
    Type type = Type::Scalar;
    std::uint32_t keyCount = 0; // dictionaries: children holds the key objects first, then the values
    std::uint64_t uid = 0;
    Value scalar;
    std::vector<std::uint32_t> children;
};

struct PlistTable {
    std::vector<PlistObject> objects;
    std::uint32_t top = 0;

    const PlistObject &at(std::uint32_t index) const { return objects[index]; }

    const std::string *keyAt(const PlistObject &dictionary, std::size_t i) const {
        return objects[dictionary.children[i]].scalar.asString();
    }

    const PlistObject *member(const PlistObject &dictionary, std::string_view key) const {
        for (std::size_t i = 0; i < dictionary.keyCount; ++i) {
            const std::string *name = keyAt(dictionary, i);
            if (name != nullptr && *name == key) {
                return &objects[dictionary.children[dictionary.keyCount + i]];
            }
        }
        return nullptr;
    }
};

inline bool isString(const PlistObject *object, std::string_view expected) {
    return object != nullptr && object->type == PlistObject::Type::Scalar && object->scalar.asString() != nullptr &&
           *object->scalar.asString() == expected;
}

} // namespace qv::posix::plist
