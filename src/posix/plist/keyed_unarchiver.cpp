// Keyed-archive decoding: the archive's frame is checked, then objects are decoded by class, bounded in depth,
// in the number of values and against reference cycles.
#include "posix/plist/keyed_unarchiver.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv::posix::plist {

namespace {

// One stored object may be named many times; the values it expands to must stay near the input's size.
constexpr std::size_t kDecodedValuesPerInputByte = 8;
constexpr std::size_t kDecodedValuesSlack = 1024;

enum class ArchivedKind {
    Dictionary,
    MutableDictionary,
    Array,
    MutableArray,
    String,
    Date,
    Data,
    Null,
    Unknown,
};

struct ClassInfo {
    ArchivedKind kind = ArchivedKind::Unknown;
    std::string name;
};

ArchivedKind kindOfClassName(std::string_view name) {
    static const std::unordered_map<std::string_view, ArchivedKind> kinds = {
        {"NSDictionary", ArchivedKind::Dictionary},
        {"NSMutableDictionary", ArchivedKind::MutableDictionary},
        {"NSArray", ArchivedKind::Array},
        {"NSMutableArray", ArchivedKind::MutableArray},
        {"NSSet", ArchivedKind::Array},
        {"NSMutableSet", ArchivedKind::MutableArray},
        {"NSOrderedSet", ArchivedKind::Array},
        {"NSMutableOrderedSet", ArchivedKind::MutableArray},
        {"NSString", ArchivedKind::String},
        {"NSMutableString", ArchivedKind::String},
        {"NSDate", ArchivedKind::Date},
        {"NSData", ArchivedKind::Data},
        {"NSMutableData", ArchivedKind::Data},
        {"NSNull", ArchivedKind::Null},
    };
    const auto found = kinds.find(name);
    return found == kinds.end() ? ArchivedKind::Unknown : found->second;
}

class Unarchiver {
  public:
    Unarchiver(const PlistTable &table, const PlistObject &objects, std::size_t inputSize,
               const KeyedArchiveReadOptions &options)
        : table_(table), objects_(objects), options_(options),
          valueBudget_(std::min(kMaxKeyedArchiveValues, kDecodedValuesPerInputByte * inputSize + kDecodedValuesSlack)),
          active_(objects.children.size(), false) {}

    const std::string &error() const { return error_; }

    // A reference is a UID naming an archived object, or (in $top and in object fields) a scalar stored in place.
    bool decodeReference(const PlistObject &node, int depth, Value &out) {
        if (!spend()) {
            return false;
        }
        if (depth >= kMaxKeyedArchiveDepth) {
            return fail("keyed archive nesting is deeper than " + std::to_string(kMaxKeyedArchiveDepth));
        }
        switch (node.type) {
        case PlistObject::Type::Uid:
            return decodeObject(node.uid, depth, out);
        case PlistObject::Type::Array:
            if (!options_.decodeUnknownClassesAsDictionaries) {
                return fail("unexpected array in place of an object reference");
            }
            return decodeInlineArray(node, depth, out);
        case PlistObject::Type::Dictionary:
            return fail("unexpected dictionary in place of an object reference");
        case PlistObject::Type::Scalar:
            out = node.scalar;
            return true;
        }
        return fail("unexpected property-list value");
    }

  private:
    bool fail(std::string message) {
        if (error_.empty()) {
            error_ = std::move(message);
        }
        return false;
    }

    bool spend() {
        if (++valuesDecoded_ > valueBudget_) {
            return fail("keyed archive expands to more than " + std::to_string(valueBudget_) + " values");
        }
        return true;
    }

    bool decodeInlineArray(const PlistObject &node, int depth, Value &out) {
        Array array;
        for (const std::uint32_t child : node.children) {
            Value item;
            if (!decodeReference(table_.at(child), depth + 1, item)) {
                return false;
            }
            array.push_back(std::move(item));
        }
        out = Value(std::move(array));
        return true;
    }

    bool decodeObject(std::uint64_t uid, int depth, Value &out) {
        if (uid == 0) {
            out = Value();
            return true;
        }
        if (uid >= objects_.children.size()) {
            return fail("object reference " + std::to_string(uid) + " is out of range (" +
                        std::to_string(objects_.children.size()) + " objects)");
        }
        const auto index = static_cast<std::size_t>(uid);
        const PlistObject &object = table_.at(objects_.children[index]);
        switch (object.type) {
        case PlistObject::Type::Scalar:
            out = object.scalar;
            return true;
        case PlistObject::Type::Dictionary:
            break;
        default:
            return fail("object " + std::to_string(uid) + " is not an archived object");
        }
        if (active_[index]) {
            return fail("object " + std::to_string(uid) + " refers back to itself");
        }
        active_[index] = true;
        const bool decoded = decodeClassed(uid, object, depth, out);
        active_[index] = false;
        return decoded;
    }

    bool classOf(std::uint64_t uid, const PlistObject &object, ClassInfo &info) {
        const PlistObject *reference = table_.member(object, "$class");
        if (reference == nullptr || reference->type != PlistObject::Type::Uid) {
            return fail("object " + std::to_string(uid) + " has no class");
        }
        const std::uint64_t classUid = reference->uid;
        if (const auto cached = classes_.find(classUid); cached != classes_.end()) {
            info = cached->second;
            return true;
        }
        if (classUid == 0 || classUid >= objects_.children.size()) {
            return fail("class reference " + std::to_string(classUid) + " is out of range");
        }
        const PlistObject &classObject = table_.at(objects_.children[static_cast<std::size_t>(classUid)]);
        const PlistObject *className =
            classObject.type == PlistObject::Type::Dictionary ? table_.member(classObject, "$classname") : nullptr;
        if (className == nullptr || className->scalar.asString() == nullptr) {
            return fail("class object " + std::to_string(classUid) + " has no class name");
        }
        info.name = *className->scalar.asString();
        info.kind = kindOfClassName(info.name);
        // A subclass of a known collection is read as that collection.
        const PlistObject *hierarchy = table_.member(classObject, "$classes");
        if (info.kind == ArchivedKind::Unknown && hierarchy != nullptr && hierarchy->type == PlistObject::Type::Array) {
            for (const std::uint32_t child : hierarchy->children) {
                const Value &name = table_.at(child).scalar;
                if (name.asString() != nullptr && info.kind == ArchivedKind::Unknown) {
                    info.kind = kindOfClassName(*name.asString());
                }
            }
        }
        classes_.emplace(classUid, info);
        return true;
    }

    bool decodeReferenceList(const PlistObject &object, const char *key, int depth, std::vector<Value> &out) {
        const PlistObject *list = table_.member(object, key);
        if (list == nullptr) {
            return true;
        }
        if (list->type != PlistObject::Type::Array) {
            return fail(std::string(key) + " is not an array");
        }
        out.reserve(list->children.size());
        for (const std::uint32_t child : list->children) {
            Value item;
            if (!decodeReference(table_.at(child), depth + 1, item)) {
                return false;
            }
            out.push_back(std::move(item));
        }
        return true;
    }

    bool decodeField(const PlistObject &object, const char *key, int depth, Value &out) {
        const PlistObject *field = table_.member(object, key);
        if (field == nullptr) {
            return fail(std::string("archived object lacks ") + key);
        }
        return decodeReference(*field, depth + 1, out);
    }

    bool decodeClassed(std::uint64_t uid, const PlistObject &object, int depth, Value &out) {
        ClassInfo info;
        if (!classOf(uid, object, info)) {
            return false;
        }
        switch (info.kind) {
        case ArchivedKind::Dictionary:
        case ArchivedKind::MutableDictionary: {
            std::vector<Value> keys;
            std::vector<Value> values;
            if (!decodeReferenceList(object, "NS.keys", depth, keys) ||
                !decodeReferenceList(object, "NS.objects", depth, values)) {
                return false;
            }
            if (keys.size() != values.size()) {
                return fail("dictionary object " + std::to_string(uid) + " has " + std::to_string(keys.size()) +
                            " keys but " + std::to_string(values.size()) + " objects");
            }
            Dictionary dictionary;
            for (std::size_t i = 0; i < keys.size(); ++i) {
                dictionary.set(std::move(keys[i]), std::move(values[i]));
            }
            dictionary.setMutable(info.kind == ArchivedKind::MutableDictionary);
            out = Value(std::move(dictionary));
            return true;
        }
        case ArchivedKind::Array:
        case ArchivedKind::MutableArray: {
            std::vector<Value> items;
            if (!decodeReferenceList(object, "NS.objects", depth, items)) {
                return false;
            }
            Array array(std::move(items));
            array.setMutable(info.kind == ArchivedKind::MutableArray);
            out = Value(std::move(array));
            return true;
        }
        case ArchivedKind::String:
            if (!decodeField(object, "NS.string", depth, out)) {
                return false;
            }
            return out.asString() != nullptr || fail("NS.string of object " + std::to_string(uid) + " is no string");
        case ArchivedKind::Date: {
            Value time;
            if (!decodeField(object, "NS.time", depth, time)) {
                return false;
            }
            if (time.asReal() != nullptr) {
                out = Value(Date{*time.asReal()});
                return true;
            }
            if (time.asInteger() != nullptr) {
                out = Value(Date{static_cast<double>(*time.asInteger())});
                return true;
            }
            return fail("NS.time of object " + std::to_string(uid) + " is no number");
        }
        case ArchivedKind::Data:
            if (!decodeField(object, "NS.data", depth, out)) {
                return false;
            }
            return out.asBytes() != nullptr || fail("NS.data of object " + std::to_string(uid) + " is no data");
        case ArchivedKind::Null:
            out = Value();
            return true;
        case ArchivedKind::Unknown:
            break;
        }
        if (!options_.decodeUnknownClassesAsDictionaries) {
            return fail("unsupported archived class " + info.name);
        }
        Dictionary fields;
        fields.set(Value("$class"), Value(info.name));
        for (std::size_t i = 0; i < object.keyCount; ++i) {
            const std::string *name = table_.keyAt(object, i);
            if (name == nullptr) {
                return fail("object " + std::to_string(uid) + " has a key that is not a string");
            }
            if (*name == "$class") {
                continue;
            }
            Value value;
            if (!decodeReference(table_.at(object.children[object.keyCount + i]), depth + 1, value)) {
                return false;
            }
            fields.set(Value(*name), std::move(value));
        }
        out = Value(std::move(fields));
        return true;
    }

    const PlistTable &table_;
    const PlistObject &objects_;
    KeyedArchiveReadOptions options_;
    std::size_t valueBudget_;
    std::size_t valuesDecoded_ = 0;
    std::vector<bool> active_;
    std::unordered_map<std::uint64_t, ClassInfo> classes_;
    std::string error_;
};

// The two parts of a checked archive: its named top-level references and its object table.
struct ArchiveFrame {
    const PlistObject *top = nullptr;
    const PlistObject *objects = nullptr;
};

Error notKeyedArchive(std::string detail) {
    return fail(ErrorCode::MalformedArchive, std::move(detail));
}

Result<ArchiveFrame> openArchive(const PlistTable &table) {
    const PlistObject &root = table.at(table.top);
    if (root.type != PlistObject::Type::Dictionary) {
        return notKeyedArchive("not a keyed archive: the property list is not a dictionary");
    }
    const PlistObject *archiver = table.member(root, "$archiver");
    if (archiver == nullptr) {
        return notKeyedArchive("not a keyed archive: missing $archiver");
    }
    if (!isString(archiver, kKeyedArchiverName)) {
        return notKeyedArchive("not a keyed archive: unknown $archiver");
    }
    const PlistObject *version = table.member(root, "$version");
    if (version == nullptr || version->scalar.asInteger() == nullptr) {
        return notKeyedArchive("not a keyed archive: missing $version");
    }
    if (*version->scalar.asInteger() != kKeyedArchiveVersion) {
        return notKeyedArchive("unsupported keyed-archive $version " + std::to_string(*version->scalar.asInteger()));
    }
    ArchiveFrame frame;
    frame.top = table.member(root, "$top");
    if (frame.top == nullptr || frame.top->type != PlistObject::Type::Dictionary) {
        return notKeyedArchive("not a keyed archive: missing $top");
    }
    frame.objects = table.member(root, "$objects");
    if (frame.objects == nullptr || frame.objects->type != PlistObject::Type::Array) {
        return notKeyedArchive("not a keyed archive: missing $objects");
    }
    if (frame.objects->children.empty() || !isString(&table.at(frame.objects->children[0]), kKeyedArchiveNullMarker)) {
        return notKeyedArchive("not a keyed archive: $objects does not start with $null");
    }
    return frame;
}

} // namespace

Result<Value> unarchiveRoot(const PlistTable &table, std::size_t inputSize, const KeyedArchiveReadOptions &options) {
    const auto frame = openArchive(table);
    if (!frame) {
        return frame.error();
    }
    const PlistObject *root = table.member(*frame->top, kKeyedArchiveRootKey);
    if (root == nullptr) {
        return notKeyedArchive("keyed archive has no \"root\" object in $top");
    }
    Unarchiver unarchiver(table, *frame->objects, inputSize, options);
    Value value;
    if (!unarchiver.decodeReference(*root, 0, value)) {
        return notKeyedArchive(unarchiver.error());
    }
    return value;
}

Result<Value> unarchiveTop(const PlistTable &table, std::size_t inputSize, const KeyedArchiveReadOptions &options) {
    const auto frame = openArchive(table);
    if (!frame) {
        return frame.error();
    }
    Unarchiver unarchiver(table, *frame->objects, inputSize, options);
    Dictionary top;
    const PlistObject &topObjects = *frame->top;
    for (std::size_t i = 0; i < topObjects.keyCount; ++i) {
        const std::string *name = table.keyAt(topObjects, i);
        if (name == nullptr) {
            return notKeyedArchive("$top has a key that is not a string");
        }
        Value value;
        if (!unarchiver.decodeReference(table.at(topObjects.children[topObjects.keyCount + i]), 0, value)) {
            return notKeyedArchive(unarchiver.error());
        }
        top.set(Value(*name), std::move(value));
    }
    return Value(std::move(top));
}

} // namespace qv::posix::plist
