// Preferences in a property-list file: read by the bounded readers, written by libplist, replaced atomically.
#include "posix/plist_preferences.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/text.h"
#include "posix/file_io.h"
#include "posix/plist/binary_reader.h"
#include "posix/plist/libplist_owner.h"
#include "posix/plist/xml_reader.h"

namespace qv::posix {

namespace {

using plist::PlistObject;
using plist::PlistTable;

// Objects shared by several references expand once per reference; this bounds what a small file may expand to.
constexpr std::size_t kValuesPerInputByte = 4;
constexpr std::size_t kValuesSlack = 4096;

class TableConverter {
  public:
    TableConverter(const PlistTable &table, std::size_t inputSize)
        : table_(table), budget_(inputSize * kValuesPerInputByte + kValuesSlack) {}

    Result<Value> convert(std::uint32_t index, int depth) {
        if (depth > kMaxPreferencesDepth) {
            return fail(ErrorCode::MalformedPropertyList,
                        "nesting is deeper than " + std::to_string(kMaxPreferencesDepth));
        }
        if (budget_ == 0) {
            return fail(ErrorCode::MalformedPropertyList, "the property list expands to too many values");
        }
        --budget_;
        const PlistObject &object = table_.at(index);
        switch (object.type) {
        case PlistObject::Type::Scalar:
            return object.scalar;
        case PlistObject::Type::Uid:
            return fail(ErrorCode::MalformedPropertyList, "a defaults file holds no object references");
        case PlistObject::Type::Array: {
            Array array;
            for (const std::uint32_t child : object.children) {
                auto item = convert(child, depth + 1);
                if (!item) {
                    return item.error();
                }
                array.push_back(std::move(*item));
            }
            return Value(std::move(array));
        }
        case PlistObject::Type::Dictionary: {
            Dictionary dictionary;
            for (std::size_t i = 0; i < object.keyCount; ++i) {
                const std::string *key = table_.keyAt(object, i);
                if (key == nullptr) {
                    return fail(ErrorCode::MalformedPropertyList, "a dictionary key is not text");
                }
                auto item = convert(object.children[object.keyCount + i], depth + 1);
                if (!item) {
                    return item.error();
                }
                dictionary.set(Value(*key), std::move(*item));
            }
            return Value(std::move(dictionary));
        }
        }
        return fail(ErrorCode::MalformedPropertyList, "unknown object type");
    }

  private:
    const PlistTable &table_;
    std::size_t budget_;
};

Result<plist::PlistOwner> node(const Value &value, int depth);

Result<plist::PlistOwner> dictionaryNode(const Dictionary &dictionary, int depth) {
    plist::PlistOwner owned(plist_new_dict());
    for (const auto &[key, item] : dictionary) {
        const std::string *name = key.asString();
        if (name == nullptr || name->find('\0') != std::string::npos || !isValidUtf8(*name)) {
            return fail(ErrorCode::UnencodableValue, "dictionary keys must be UTF-8 texts without NUL");
        }
        auto child = node(item, depth + 1);
        if (!child) {
            return child.error();
        }
        plist_dict_set_item(owned.get(), name->c_str(), static_cast<plist_t>(child->release()));
    }
    return owned;
}

Result<plist::PlistOwner> node(const Value &value, int depth) {
    if (depth > kMaxPreferencesDepth) {
        return fail(ErrorCode::UnencodableValue, "nesting is deeper than " + std::to_string(kMaxPreferencesDepth));
    }
    constexpr double kMicrosecondsPerSecond = 1e6;
    switch (value.kind()) {
    case Value::Kind::Null:
        return fail(ErrorCode::UnencodableValue, "a property list cannot hold null");
    case Value::Kind::Bool:
        return plist::PlistOwner(plist_new_bool(*value.asBool() ? 1 : 0));
    case Value::Kind::Integer:
        return plist::PlistOwner(plist_new_uint(static_cast<std::uint64_t>(*value.asInteger())));
    case Value::Kind::Real:
        return plist::PlistOwner(plist_new_real(*value.asReal()));
    case Value::Kind::String: {
        const std::string &text = *value.asString();
        if (text.find('\0') != std::string::npos || !isValidUtf8(text)) {
            return fail(ErrorCode::UnencodableValue, "a text holds NUL or is not UTF-8");
        }
        return plist::PlistOwner(plist_new_string(text.c_str()));
    }
    case Value::Kind::Bytes: {
        const Bytes &bytes = *value.asBytes();
        return plist::PlistOwner(plist_new_data(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
    }
    case Value::Kind::Date: {
        const double seconds = value.asDate()->secondsSinceReferenceDate;
        const auto whole = static_cast<std::int32_t>(seconds);
        const auto micro = static_cast<std::int32_t>((seconds - whole) * kMicrosecondsPerSecond);
        return plist::PlistOwner(plist_new_date(whole, micro));
    }
    case Value::Kind::Array: {
        plist::PlistOwner owned(plist_new_array());
        for (const Value &item : *value.asArray()) {
            auto child = node(item, depth + 1);
            if (!child) {
                return child.error();
            }
            plist_array_append_item(owned.get(), static_cast<plist_t>(child->release()));
        }
        return owned;
    }
    case Value::Kind::Dictionary:
        return dictionaryNode(*value.asDictionary(), depth);
    }
    return fail(ErrorCode::UnencodableValue, "unknown value kind");
}

bool fileMissing(const std::string &path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) != 0 && errno == ENOENT;
}

} // namespace

Result<Dictionary> readPreferencesPropertyList(std::string_view bytes) {
    if (bytes.size() > kMaxPreferencesFileBytes) {
        return fail(ErrorCode::MalformedPropertyList,
                    "larger than " + std::to_string(kMaxPreferencesFileBytes) + " bytes");
    }
    if (bytes.empty()) {
        return fail(ErrorCode::MalformedPropertyList, "empty file");
    }
    const auto table =
        plist::isBinaryPropertyList(bytes) ? plist::readBinaryPropertyList(bytes) : plist::readXmlPropertyList(bytes);
    if (!table) {
        return table.error();
    }
    if (table->objects.empty() || table->at(table->top).type != PlistObject::Type::Dictionary) {
        return fail(ErrorCode::WrongType, "the top object is not a dictionary");
    }
    auto top = TableConverter(*table, bytes.size()).convert(table->top, 0);
    if (!top) {
        return top.error();
    }
    return std::move(*top->asDictionary());
}

Result<std::string> writePreferencesPropertyList(const Dictionary &values) {
    auto root = dictionaryNode(values, 0);
    if (!root) {
        return root.error();
    }
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(static_cast<plist_t>(root->get()), &bytes, &length);
    if (bytes == nullptr) {
        return fail(ErrorCode::UnencodableValue, "the property list writer produced nothing");
    }
    std::string out(bytes, length);
    plist_to_bin_free(bytes);
    return out;
}

Result<Value> readPropertyListDictionaryFile(const std::string &path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && static_cast<std::uint64_t>(info.st_size) > kMaxPreferencesFileBytes) {
        return fail(ErrorCode::MalformedPropertyList,
                    path + ": larger than " + std::to_string(kMaxPreferencesFileBytes) + " bytes");
    }
    const auto bytes = readFile(path);
    if (!bytes) {
        return bytes.error();
    }
    auto values = readPreferencesPropertyList(*bytes);
    if (!values) {
        return fail(values.error().code, path + ": " + values.error().detail);
    }
    return Value(std::move(*values));
}

Result<std::unique_ptr<PlistPreferences>> PlistPreferences::open(const std::string &path) {
    if (fileMissing(path)) {
        return std::unique_ptr<PlistPreferences>(new PlistPreferences(path, Dictionary()));
    }
    auto values = readPropertyListDictionaryFile(path);
    if (!values) {
        return values.error();
    }
    return std::unique_ptr<PlistPreferences>(new PlistPreferences(path, std::move(*values->asDictionary())));
}

Result<std::string> PlistPreferences::encode(const Dictionary &values) const {
    return writePreferencesPropertyList(values);
}

} // namespace qv::posix
