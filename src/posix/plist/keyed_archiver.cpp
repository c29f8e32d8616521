// Keyed-archive encoding: values become archived objects (shared strings, one class entry per class) built with
// libplist and written as a binary property list.
#include "posix/plist/keyed_archiver.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/text.h"
#include "posix/keyed_archive.h"
#include "posix/plist/libplist_owner.h"

namespace qv::posix::plist {

namespace {

class Archiver {
  public:
    Archiver() { objects_.emplace_back(plist_new_string(std::string(kKeyedArchiveNullMarker).c_str())); }

    bool encode(const Value &value, int depth, std::uint64_t &uid) {
        if (depth >= kMaxKeyedArchiveDepth) {
            return fail("value nesting is deeper than " + std::to_string(kMaxKeyedArchiveDepth));
        }
        switch (value.kind()) {
        case Value::Kind::Null:
            uid = 0;
            return true;
        case Value::Kind::Bool:
            uid = append(plist_new_bool(*value.asBool() ? 1 : 0));
            return true;
        case Value::Kind::Integer:
            uid = append(plist_new_uint(static_cast<std::uint64_t>(*value.asInteger())));
            return true;
        case Value::Kind::Real:
            uid = append(plist_new_real(*value.asReal()));
            return true;
        case Value::Kind::String:
            return encodeString(*value.asString(), uid);
        case Value::Kind::Bytes: {
            const Bytes &bytes = *value.asBytes();
            uid = append(plist_new_data(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
            return true;
        }
        case Value::Kind::Date: {
            plist_t object = plist_new_dict();
            plist_dict_set_item(object, "NS.time", plist_new_real(value.asDate()->secondsSinceReferenceDate));
            plist_dict_set_item(object, "$class", plist_new_uid(classUid({"NSDate", "NSObject"})));
            uid = append(object);
            return true;
        }
        case Value::Kind::Array:
            return encodeArray(*value.asArray(), depth, uid);
        case Value::Kind::Dictionary:
            return encodeDictionary(*value.asDictionary(), depth, uid);
        }
        return fail("unknown value kind");
    }

    Result<std::string> finish(std::uint64_t rootUid) {
        PlistOwner root(plist_new_dict());
        plist_dict_set_item(root.get(), "$version", plist_new_uint(static_cast<std::uint64_t>(kKeyedArchiveVersion)));
        plist_dict_set_item(root.get(), "$archiver", plist_new_string(std::string(kKeyedArchiverName).c_str()));
        plist_t top = plist_new_dict();
        plist_dict_set_item(top, std::string(kKeyedArchiveRootKey).c_str(), plist_new_uid(rootUid));
        plist_dict_set_item(root.get(), "$top", top);
        plist_t objects = plist_new_array();
        for (PlistOwner &object : objects_) {
            plist_array_append_item(objects, object.release());
        }
        plist_dict_set_item(root.get(), "$objects", objects);
        char *bytes = nullptr;
        std::uint32_t length = 0;
        plist_to_bin(root.get(), &bytes, &length);
        if (bytes == nullptr) {
            return qv::fail(ErrorCode::UnencodableValue, "cannot write the binary property list");
        }
        std::string out(bytes, length);
        plist_to_bin_free(bytes);
        return out;
    }

    const std::string &error() const { return error_; }

  private:
    bool fail(std::string message) {
        error_ = std::move(message);
        return false;
    }

    std::uint64_t append(plist_t object) {
        objects_.emplace_back(object);
        return objects_.size() - 1;
    }

    // The object is given its number before its contents, so a container precedes what it holds.
    std::uint64_t reserve() { return append(nullptr); }
    void fill(std::uint64_t uid, plist_t object) { objects_[static_cast<std::size_t>(uid)].reset(object); }

    bool encodeString(const std::string &text, std::uint64_t &uid) {
        if (text.find('\0') != std::string::npos) {
            return fail("a string with an embedded NUL cannot be archived");
        }
        if (!isValidUtf8(text)) {
            return fail("a string that is not valid UTF-8 cannot be archived");
        }
        if (const auto shared = strings_.find(text); shared != strings_.end()) {
            uid = shared->second;
            return true;
        }
        uid = append(plist_new_string(text.c_str()));
        strings_.emplace(text, uid);
        return true;
    }

    std::uint64_t classUid(std::initializer_list<const char *> hierarchy) {
        const std::string name = *hierarchy.begin();
        if (const auto known = classes_.find(name); known != classes_.end()) {
            return known->second;
        }
        plist_t object = plist_new_dict();
        plist_dict_set_item(object, "$classname", plist_new_string(name.c_str()));
        plist_t names = plist_new_array();
        for (const char *className : hierarchy) {
            plist_array_append_item(names, plist_new_string(className));
        }
        plist_dict_set_item(object, "$classes", names);
        const std::uint64_t uid = append(object);
        classes_.emplace(name, uid);
        return uid;
    }

    bool encodeList(const std::vector<Value> &items, int depth, plist_t &list) {
        PlistOwner owned(plist_new_array());
        for (const Value &item : items) {
            std::uint64_t itemUid = 0;
            if (!encode(item, depth + 1, itemUid)) {
                return false;
            }
            plist_array_append_item(owned.get(), plist_new_uid(itemUid));
        }
        list = owned.release();
        return true;
    }

    bool encodeArray(const Array &array, int depth, std::uint64_t &uid) {
        uid = reserve();
        plist_t list = nullptr;
        if (!encodeList(array.items(), depth, list)) {
            return false;
        }
        plist_t object = plist_new_dict();
        plist_dict_set_item(object, "NS.objects", list);
        plist_dict_set_item(object, "$class",
                            plist_new_uid(array.isMutable() ? classUid({"NSMutableArray", "NSArray", "NSObject"})
                                                            : classUid({"NSArray", "NSObject"})));
        fill(uid, object);
        return true;
    }

    bool encodeDictionary(const Dictionary &dictionary, int depth, std::uint64_t &uid) {
        uid = reserve();
        std::vector<Value> keys;
        std::vector<Value> values;
        keys.reserve(dictionary.size());
        values.reserve(dictionary.size());
        for (const auto &[key, value] : dictionary) {
            keys.push_back(key);
            values.push_back(value);
        }
        plist_t keyList = nullptr;
        if (!encodeList(keys, depth, keyList)) {
            return false;
        }
        PlistOwner ownedKeys(keyList);
        plist_t valueList = nullptr;
        if (!encodeList(values, depth, valueList)) {
            return false;
        }
        plist_t object = plist_new_dict();
        plist_dict_set_item(object, "NS.keys", ownedKeys.release());
        plist_dict_set_item(object, "NS.objects", valueList);
        plist_dict_set_item(object, "$class",
                            plist_new_uid(dictionary.isMutable()
                                              ? classUid({"NSMutableDictionary", "NSDictionary", "NSObject"})
                                              : classUid({"NSDictionary", "NSObject"})));
        fill(uid, object);
        return true;
    }

    std::vector<PlistOwner> objects_;
    std::unordered_map<std::string, std::uint64_t> strings_;
    std::unordered_map<std::string, std::uint64_t> classes_;
    std::string error_;
};

} // namespace

Result<std::string> archiveRoot(const Value &root) {
    Archiver archiver;
    std::uint64_t rootUid = 0;
    if (!archiver.encode(root, 0, rootUid)) {
        return fail(ErrorCode::UnencodableValue, archiver.error());
    }
    return archiver.finish(rootUid);
}

} // namespace qv::posix::plist
