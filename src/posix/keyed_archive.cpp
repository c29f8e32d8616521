// Keyed-archive codec over libplist, with a structural check that runs before libplist sees hostile bytes.
#include "posix/keyed_archive.h"

#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <vector>

namespace qv::posix {

namespace {

constexpr std::string_view kArchiverName = "NSKeyedArchiver";
constexpr std::uint64_t kArchiveVersion = 100000;
constexpr std::string_view kNullObjectMarker = "$null";

// libplist recurses once per nesting level and expands every shared reference, so the raw property list is
// checked first: its nesting is capped and its fully expanded size must stay proportional to the input.
constexpr int kMaxPropertyListDepth = 64;
constexpr std::uint64_t kExpandedNodesPerInputByte = 4;
constexpr std::uint64_t kExpandedNodesSlack = 1024;
constexpr std::size_t kDecodedValuesPerInputByte = 8;
constexpr std::size_t kDecodedValuesSlack = 1024;

struct PlistDeleter {
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

std::string_view plistString(plist_t node) {
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text == nullptr ? std::string_view() : std::string_view(text, static_cast<std::size_t>(length));
}

bool isPlistString(plist_t node, std::string_view expected) {
    return node != nullptr && plist_get_node_type(node) == PLIST_STRING && plistString(node) == expected;
}

// ---- structural check of binary property lists ----

constexpr std::string_view kBinaryMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kTrailerOffsetSizeAt = 6;
constexpr std::size_t kTrailerRefSizeAt = 7;
constexpr std::size_t kTrailerObjectCountAt = 8;
constexpr std::size_t kTrailerTopObjectAt = 16;
constexpr std::size_t kTrailerTableOffsetAt = 24;
constexpr std::size_t kWideIntegerBytes = 16;
constexpr std::size_t kMaxUidBytes = 8;
constexpr unsigned kMarkerInfoMask = 0x0F;
constexpr unsigned kMarkerTypeShift = 4;
constexpr unsigned kExtendedCount = 0x0F;

enum BinaryType : unsigned {
    kBinarySimple = 0x0,
    kBinaryInteger = 0x1,
    kBinaryReal = 0x2,
    kBinaryDate = 0x3,
    kBinaryData = 0x4,
    kBinaryAscii = 0x5,
    kBinaryUtf16 = 0x6,
    kBinaryUid = 0x8,
    kBinaryArray = 0xA,
    kBinaryDictionary = 0xD,
};

constexpr std::array<unsigned, 4> kSimpleMarkers = {0x00, 0x08, 0x09, 0x0F}; // null, false, true, fill
constexpr unsigned kRealFloatInfo = 2;
constexpr unsigned kRealDoubleInfo = 3;
constexpr unsigned kDateInfo = 3;
constexpr unsigned kMaxIntegerInfo = 4;
constexpr unsigned kMaxCountIntegerInfo = 3;
constexpr std::size_t kDateBytes = 8;
constexpr std::size_t kUtf16UnitBytes = 2;

// Offsets and references may be any whole number of bytes up to eight.
bool isValidWidth(std::size_t width) {
    return width >= 1 && width <= sizeof(std::uint64_t);
}

std::uint64_t readBigEndian(const unsigned char *bytes, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value = (value << 8U) | bytes[i];
    }
    return value;
}

class BinaryPlistCheck {
  public:
    explicit BinaryPlistCheck(std::string_view bytes)
        : data_(reinterpret_cast<const unsigned char *>(bytes.data())), size_(bytes.size()) {}

    bool run(std::string &error) {
        if (!readTrailer(error)) {
            return false;
        }
        return walk(error);
    }

  private:
    struct Object {
        unsigned type = 0;
        std::vector<std::uint64_t> children; // for dictionaries: keys first, then values
        std::size_t keyCount = 0;
    };

    bool readTrailer(std::string &error) {
        if (size_ < kBinaryMagic.size() + 1 + kTrailerSize) {
            error = "binary property list is truncated";
            return false;
        }
        const unsigned char *trailer = data_ + size_ - kTrailerSize;
        offsetSize_ = trailer[kTrailerOffsetSizeAt];
        refSize_ = trailer[kTrailerRefSizeAt];
        objectCount_ = readBigEndian(trailer + kTrailerObjectCountAt, sizeof(std::uint64_t));
        topObject_ = readBigEndian(trailer + kTrailerTopObjectAt, sizeof(std::uint64_t));
        tableOffset_ = readBigEndian(trailer + kTrailerTableOffsetAt, sizeof(std::uint64_t));
        const std::uint64_t tableLimit = size_ - kTrailerSize;
        if (!isValidWidth(offsetSize_) || !isValidWidth(refSize_)) {
            error = "binary property list has invalid offset or reference sizes";
            return false;
        }
        if (objectCount_ == 0 || topObject_ >= objectCount_) {
            error = "binary property list has no valid top object";
            return false;
        }
        if (tableOffset_ < kBinaryMagic.size() || tableOffset_ > tableLimit ||
            objectCount_ > (tableLimit - tableOffset_) / offsetSize_) {
            error = "binary property list offset table lies outside the file";
            return false;
        }
        if (refSize_ < sizeof(std::uint64_t) && objectCount_ > (std::uint64_t{1} << (refSize_ * 8U))) {
            error = "binary property list has more objects than its references can name";
            return false;
        }
        return true;
    }

    bool objectOffset(std::uint64_t index, std::uint64_t &offset, std::string &error) const {
        offset = readBigEndian(data_ + tableOffset_ + index * offsetSize_, offsetSize_);
        if (offset < kBinaryMagic.size() || offset >= tableOffset_) {
            error = "binary property list object " + std::to_string(index) + " lies outside the object area";
            return false;
        }
        return true;
    }

    // Reads a length that follows a marker: the marker's low nibble, or an integer object after it.
    bool readCount(unsigned info, std::uint64_t &position, std::uint64_t &count, std::string &error) const {
        if (info != kExtendedCount) {
            count = info;
            return true;
        }
        if (position >= tableOffset_) {
            error = "binary property list length is truncated";
            return false;
        }
        const unsigned marker = data_[position];
        const unsigned widthInfo = marker & kMarkerInfoMask;
        if ((marker >> kMarkerTypeShift) != kBinaryInteger || widthInfo > kMaxCountIntegerInfo) {
            error = "binary property list length is not an integer";
            return false;
        }
        const std::uint64_t width = std::uint64_t{1} << widthInfo;
        if (width > tableOffset_ - position - 1) {
            error = "binary property list length is truncated";
            return false;
        }
        count = readBigEndian(data_ + position + 1, width);
        position += 1 + width;
        return true;
    }

    bool fits(std::uint64_t position, std::uint64_t count, std::uint64_t unit) const {
        return position <= tableOffset_ && count <= (tableOffset_ - position) / unit;
    }

    bool readObject(std::uint64_t index, Object &object, std::string &error) const {
        std::uint64_t position = 0;
        if (!objectOffset(index, position, error)) {
            return false;
        }
        const unsigned marker = data_[position++];
        object.type = marker >> kMarkerTypeShift;
        const unsigned info = marker & kMarkerInfoMask;
        const std::string where = " in object " + std::to_string(index);
        std::uint64_t count = 0;
        switch (object.type) {
        case kBinarySimple:
            if (std::find(kSimpleMarkers.begin(), kSimpleMarkers.end(), marker) == kSimpleMarkers.end()) {
                error = "unknown binary property list marker" + where;
                return false;
            }
            return true;
        case kBinaryInteger: {
            if (info > kMaxIntegerInfo) {
                error = "invalid integer width" + where;
                return false;
            }
            const std::uint64_t width = std::uint64_t{1} << info;
            if (!fits(position, width, 1)) {
                error = "truncated integer" + where;
                return false;
            }
            // Sixteen-byte integers carry unsigned values; only those that also fit a signed 64-bit one are kept.
            if (width == kWideIntegerBytes && (readBigEndian(data_ + position, sizeof(std::uint64_t)) != 0 ||
                                               (data_[position + sizeof(std::uint64_t)] & 0x80U) != 0)) {
                error = "integer does not fit in 64 signed bits" + where;
                return false;
            }
            return true;
        }
        case kBinaryReal:
            if ((info != kRealFloatInfo && info != kRealDoubleInfo) || !fits(position, std::uint64_t{1} << info, 1)) {
                error = "invalid real" + where;
                return false;
            }
            return true;
        case kBinaryDate:
            if (info != kDateInfo || !fits(position, kDateBytes, 1)) {
                error = "invalid date" + where;
                return false;
            }
            return true;
        case kBinaryData:
        case kBinaryAscii:
        case kBinaryUtf16:
            if (!readCount(info, position, count, error)) {
                return false;
            }
            if (!fits(position, count, object.type == kBinaryUtf16 ? kUtf16UnitBytes : 1)) {
                error = "truncated data or string" + where;
                return false;
            }
            return true;
        case kBinaryUid:
            if (info + std::size_t{1} > kMaxUidBytes || !fits(position, info + std::uint64_t{1}, 1)) {
                error = "invalid object reference" + where;
                return false;
            }
            return true;
        case kBinaryArray:
        case kBinaryDictionary: {
            if (!readCount(info, position, count, error)) {
                return false;
            }
            const std::uint64_t slots = object.type == kBinaryDictionary ? 2 : 1;
            if (count > tableOffset_ || !fits(position, count * slots, refSize_)) {
                error = "container is larger than the file" + where;
                return false;
            }
            object.keyCount = object.type == kBinaryDictionary ? static_cast<std::size_t>(count) : 0;
            object.children.reserve(static_cast<std::size_t>(count * slots));
            for (std::uint64_t slot = 0; slot < count * slots; ++slot) {
                const std::uint64_t child = readBigEndian(data_ + position + slot * refSize_, refSize_);
                if (child >= objectCount_) {
                    error = "reference out of range" + where;
                    return false;
                }
                object.children.push_back(child);
            }
            return true;
        }
        default:
            error = "unsupported binary property list object type" + where;
            return false;
        }
    }

    // Depth-first over the reachable objects with an explicit stack: catches cycles, caps nesting, and adds up
    // the size the object tree reaches once every shared reference is expanded.
    bool walk(std::string &error) {
        enum : unsigned char { kUnseen, kOnPath, kDone };
        std::vector<unsigned char> state(static_cast<std::size_t>(objectCount_), kUnseen);
        std::unordered_map<std::uint64_t, std::uint64_t> expanded;
        const std::uint64_t expansionLimit = kExpandedNodesPerInputByte * size_ + kExpandedNodesSlack;
        struct Frame {
            std::uint64_t index;
            Object object;
            std::size_t next = 0;
            std::uint64_t total = 1;
        };
        std::vector<Frame> path;
        auto enter = [&](std::uint64_t index) -> bool {
            if (path.size() >= static_cast<std::size_t>(kMaxPropertyListDepth)) {
                error = "property list nesting is deeper than " + std::to_string(kMaxPropertyListDepth);
                return false;
            }
            Frame frame{index, {}, 0, 1};
            if (!readObject(index, frame.object, error)) {
                return false;
            }
            state[static_cast<std::size_t>(index)] = kOnPath;
            path.push_back(std::move(frame));
            return true;
        };
        if (!enter(topObject_)) {
            return false;
        }
        while (!path.empty()) {
            Frame &frame = path.back();
            if (frame.next < frame.object.children.size()) {
                const std::uint64_t child = frame.object.children[frame.next++];
                const unsigned char childState = state[static_cast<std::size_t>(child)];
                if (childState == kOnPath) {
                    error = "property list object " + std::to_string(child) + " contains itself";
                    return false;
                }
                if (childState == kDone) {
                    frame.total += expanded[child];
                } else if (!enter(child)) {
                    return false;
                }
                continue;
            }
            if (frame.object.type == kBinaryDictionary) {
                for (std::size_t key = 0; key < frame.object.keyCount; ++key) {
                    Object keyObject;
                    if (!readObject(frame.object.children[key], keyObject, error)) {
                        return false;
                    }
                    if (keyObject.type != kBinaryAscii && keyObject.type != kBinaryUtf16) {
                        error = "dictionary key is not a string in object " + std::to_string(frame.index);
                        return false;
                    }
                }
            }
            const std::uint64_t total = frame.total;
            const std::uint64_t index = frame.index;
            if (total > expansionLimit) {
                error = "property list expands far beyond its size";
                return false;
            }
            state[static_cast<std::size_t>(index)] = kDone;
            expanded[index] = total;
            path.pop_back();
            if (!path.empty()) {
                path.back().total += total;
            }
        }
        return true;
    }

    const unsigned char *data_;
    std::size_t size_;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t topObject_ = 0;
    std::uint64_t tableOffset_ = 0;
};

// ---- structural check of XML property lists: only nesting needs capping before the parser recurses ----

bool startsWithAt(std::string_view text, std::size_t at, std::string_view prefix) {
    return text.size() - at >= prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

bool isNameEnd(std::string_view text, std::size_t at) {
    if (at >= text.size()) {
        return true;
    }
    const char next = text[at];
    return next == '>' || next == '/' || next == ' ' || next == '\t' || next == '\r' || next == '\n';
}

bool checkXmlNesting(std::string_view text, std::string &error) {
    int depth = 0;
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        if (startsWithAt(text, at, "<!--")) {
            const std::size_t end = text.find("-->", at + 4);
            at = end == std::string_view::npos ? text.size() : end + 3;
            continue;
        }
        if (startsWithAt(text, at, "<![CDATA[")) {
            const std::size_t end = text.find("]]>", at);
            at = end == std::string_view::npos ? text.size() : end + 3;
            continue;
        }
        const bool closing = startsWithAt(text, at, "</");
        const std::size_t nameAt = at + (closing ? 2 : 1);
        const std::size_t tagEnd = text.find('>', at);
        const bool selfClosing = tagEnd != std::string_view::npos && tagEnd > at && text[tagEnd - 1] == '/';
        for (const std::string_view name : {std::string_view("array"), std::string_view("dict")}) {
            if (!startsWithAt(text, nameAt, name) || !isNameEnd(text, nameAt + name.size())) {
                continue;
            }
            if (closing) {
                depth = std::max(0, depth - 1);
            } else if (!selfClosing && ++depth > kMaxPropertyListDepth) {
                error = "property list nesting is deeper than " + std::to_string(kMaxPropertyListDepth);
                return false;
            }
        }
        at += 1;
    }
    return true;
}

// XML property lists spell an object reference as a dictionary whose only key is "CF$UID".
plist_t xmlReferenceAsUid(plist_t node) {
    if (plist_get_node_type(node) != PLIST_DICT || plist_dict_get_size(node) != 1) {
        return nullptr;
    }
    plist_t number = plist_dict_get_item(node, "CF$UID");
    if (number == nullptr || plist_get_node_type(number) != PLIST_UINT) {
        return nullptr;
    }
    std::uint64_t uid = 0;
    plist_get_uint_val(number, &uid);
    return plist_new_uid(uid);
}

// Nesting is already capped, so plain recursion is bounded here.
void convertXmlReferences(plist_t node) {
    if (plist_get_node_type(node) == PLIST_ARRAY) {
        const std::uint32_t size = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < size; ++i) {
            plist_t item = plist_array_get_item(node, i);
            if (plist_t uid = xmlReferenceAsUid(item)) {
                plist_array_set_item(node, uid, i);
            } else {
                convertXmlReferences(item);
            }
        }
        return;
    }
    if (plist_get_node_type(node) != PLIST_DICT) {
        return;
    }
    std::vector<std::string> keys;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    while (iterator != nullptr) {
        char *key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        if (item == nullptr) {
            std::free(key);
            break;
        }
        keys.emplace_back(key == nullptr ? "" : key);
        std::free(key);
    }
    std::free(iterator);
    for (const std::string &key : keys) {
        plist_t item = plist_dict_get_item(node, key.c_str());
        if (plist_t uid = xmlReferenceAsUid(item)) {
            plist_dict_set_item(node, key.c_str(), uid);
        } else {
            convertXmlReferences(item);
        }
    }
}

PlistOwner parsePropertyList(std::string_view bytes, std::string &error) {
    if (bytes.empty()) {
        error = "empty input is not a keyed archive";
        return nullptr;
    }
    if (bytes.size() > kMaxKeyedArchiveBytes) {
        error = "keyed archive is larger than " + std::to_string(kMaxKeyedArchiveBytes) + " bytes";
        return nullptr;
    }
    const bool binary = bytes.substr(0, kBinaryMagic.size()) == kBinaryMagic;
    if (binary) {
        BinaryPlistCheck check(bytes);
        if (!check.run(error)) {
            return nullptr;
        }
    } else if (!checkXmlNesting(bytes, error)) {
        return nullptr;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (root == nullptr) {
        error = binary ? "malformed binary property list" : "not a well-formed property list";
        return nullptr;
    }
    if (!binary) {
        convertXmlReferences(root);
    }
    return PlistOwner(root);
}

// ---- decoding ----

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
    Unarchiver(plist_t objects, std::size_t inputSize, const KeyedArchiveReadOptions &options)
        : objects_(objects), count_(plist_array_get_size(objects)), options_(options),
          valueBudget_(std::min(kMaxKeyedArchiveValues, kDecodedValuesPerInputByte * inputSize + kDecodedValuesSlack)),
          state_(count_, false) {}

    const std::string &error() const { return error_; }

    // A reference is a UID naming an object, or (in $top and in object fields) a scalar stored in place.
    bool decodeReference(plist_t node, int depth, Value &out) {
        if (!spend()) {
            return false;
        }
        switch (plist_get_node_type(node)) {
        case PLIST_UID: {
            std::uint64_t uid = 0;
            plist_get_uid_val(node, &uid);
            return decodeObject(uid, depth, out);
        }
        case PLIST_ARRAY:
            if (!options_.decodeUnknownClassesAsDictionaries) {
                return fail("unexpected array in place of an object reference");
            }
            return decodeInlineArray(node, depth, out);
        case PLIST_DICT:
            return fail("unexpected dictionary in place of an object reference");
        default:
            return decodeScalar(node, out);
        }
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

    bool decodeScalar(plist_t node, Value &out) {
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t flag = 0;
            plist_get_bool_val(node, &flag);
            out = Value(flag != 0);
            return true;
        }
        case PLIST_UINT: {
            std::uint64_t bits = 0;
            plist_get_uint_val(node, &bits);
            // Stored as the two's-complement bits of a signed 64-bit integer.
            out = Value(static_cast<long long>(bits));
            return true;
        }
        case PLIST_REAL: {
            double real = 0;
            plist_get_real_val(node, &real);
            out = Value(real);
            return true;
        }
        case PLIST_STRING:
            out = Value(plistString(node));
            return true;
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char *bytes = plist_get_data_ptr(node, &length);
            const auto *begin = reinterpret_cast<const std::uint8_t *>(bytes);
            out = Value(Bytes(begin, begin + length));
            return true;
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0;
            std::int32_t microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            constexpr double kMicrosecondsPerSecond = 1e6;
            out = Value(Date{seconds + microseconds / kMicrosecondsPerSecond});
            return true;
        }
        default:
            return fail("unexpected property-list value in the archive");
        }
    }

    bool decodeInlineArray(plist_t node, int depth, Value &out) {
        if (depth >= kMaxKeyedArchiveDepth) {
            return fail("keyed archive nesting is deeper than " + std::to_string(kMaxKeyedArchiveDepth));
        }
        Array array;
        const std::uint32_t size = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < size; ++i) {
            Value item;
            if (!decodeReference(plist_array_get_item(node, i), depth + 1, item)) {
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
        if (uid >= count_) {
            return fail("object reference " + std::to_string(uid) + " is out of range (" + std::to_string(count_) +
                        " objects)");
        }
        if (depth >= kMaxKeyedArchiveDepth) {
            return fail("keyed archive nesting is deeper than " + std::to_string(kMaxKeyedArchiveDepth));
        }
        const auto index = static_cast<std::size_t>(uid);
        if (state_[index]) {
            return fail("object " + std::to_string(uid) + " refers back to itself");
        }
        plist_t object = plist_array_get_item(objects_, static_cast<std::uint32_t>(uid));
        if (plist_get_node_type(object) != PLIST_DICT) {
            if (plist_get_node_type(object) == PLIST_UID || plist_get_node_type(object) == PLIST_ARRAY) {
                return fail("object " + std::to_string(uid) + " is not an archived object");
            }
            return decodeScalar(object, out);
        }
        state_[index] = true;
        const bool decoded = decodeClassed(uid, object, depth, out);
        state_[index] = false;
        return decoded;
    }

    bool classOf(std::uint64_t uid, plist_t object, ClassInfo &info) {
        plist_t classReference = plist_dict_get_item(object, "$class");
        if (classReference == nullptr || plist_get_node_type(classReference) != PLIST_UID) {
            return fail("object " + std::to_string(uid) + " has no class");
        }
        std::uint64_t classUid = 0;
        plist_get_uid_val(classReference, &classUid);
        if (const auto cached = classes_.find(classUid); cached != classes_.end()) {
            info = cached->second;
            return true;
        }
        if (classUid == 0 || classUid >= count_) {
            return fail("class reference " + std::to_string(classUid) + " is out of range");
        }
        plist_t classObject = plist_array_get_item(objects_, static_cast<std::uint32_t>(classUid));
        plist_t className =
            plist_get_node_type(classObject) == PLIST_DICT ? plist_dict_get_item(classObject, "$classname") : nullptr;
        if (className == nullptr || plist_get_node_type(className) != PLIST_STRING) {
            return fail("class object " + std::to_string(classUid) + " has no class name");
        }
        info.name = std::string(plistString(className));
        info.kind = kindOfClassName(info.name);
        // A subclass of a known collection is read as that collection.
        plist_t hierarchy = plist_dict_get_item(classObject, "$classes");
        if (info.kind == ArchivedKind::Unknown && hierarchy != nullptr &&
            plist_get_node_type(hierarchy) == PLIST_ARRAY) {
            const std::uint32_t size = plist_array_get_size(hierarchy);
            for (std::uint32_t i = 0; i < size && info.kind == ArchivedKind::Unknown; ++i) {
                plist_t name = plist_array_get_item(hierarchy, i);
                if (plist_get_node_type(name) == PLIST_STRING) {
                    info.kind = kindOfClassName(plistString(name));
                }
            }
        }
        classes_.emplace(classUid, info);
        return true;
    }

    bool decodeReferenceList(plist_t object, const char *key, int depth, std::vector<Value> &out) {
        plist_t list = plist_dict_get_item(object, key);
        if (list == nullptr) {
            return true;
        }
        if (plist_get_node_type(list) != PLIST_ARRAY) {
            return fail(std::string(key) + " is not an array");
        }
        const std::uint32_t size = plist_array_get_size(list);
        out.reserve(size);
        for (std::uint32_t i = 0; i < size; ++i) {
            Value item;
            if (!decodeReference(plist_array_get_item(list, i), depth + 1, item)) {
                return false;
            }
            out.push_back(std::move(item));
        }
        return true;
    }

    bool decodeField(plist_t object, const char *key, int depth, Value &out) {
        plist_t field = plist_dict_get_item(object, key);
        if (field == nullptr) {
            return fail(std::string("archived object lacks ") + key);
        }
        return decodeReference(field, depth + 1, out);
    }

    bool decodeClassed(std::uint64_t uid, plist_t object, int depth, Value &out) {
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
        return decodeFieldsOf(info, object, depth, out);
    }

    bool decodeFieldsOf(const ClassInfo &info, plist_t object, int depth, Value &out) {
        Dictionary fields;
        fields.set(Value("$class"), Value(info.name));
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(object, &iterator);
        while (iterator != nullptr) {
            char *key = nullptr;
            plist_t field = nullptr;
            plist_dict_next_item(object, iterator, &key, &field);
            if (field == nullptr) {
                std::free(key);
                break;
            }
            const std::string name = key == nullptr ? std::string() : std::string(key);
            std::free(key);
            if (name == "$class") {
                continue;
            }
            Value value;
            if (!decodeReference(field, depth + 1, value)) {
                std::free(iterator);
                return false;
            }
            fields.set(Value(name), std::move(value));
        }
        std::free(iterator);
        out = Value(std::move(fields));
        return true;
    }

    plist_t objects_;
    std::size_t count_;
    KeyedArchiveReadOptions options_;
    std::size_t valueBudget_;
    std::size_t valuesDecoded_ = 0;
    std::vector<bool> state_;
    std::unordered_map<std::uint64_t, ClassInfo> classes_;
    std::string error_;
};

struct OpenedArchive {
    PlistOwner plist;
    plist_t top = nullptr;
    plist_t objects = nullptr;
};

bool openArchive(std::string_view bytes, OpenedArchive &archive, std::string &error) {
    archive.plist = parsePropertyList(bytes, error);
    if (!archive.plist) {
        return false;
    }
    plist_t root = archive.plist.get();
    if (plist_get_node_type(root) != PLIST_DICT) {
        error = "not a keyed archive: the property list is not a dictionary";
        return false;
    }
    plist_t archiver = plist_dict_get_item(root, "$archiver");
    if (archiver == nullptr) {
        error = "not a keyed archive: missing $archiver";
        return false;
    }
    if (!isPlistString(archiver, kArchiverName)) {
        error = "not a keyed archive: unknown $archiver";
        return false;
    }
    plist_t version = plist_dict_get_item(root, "$version");
    if (version == nullptr || plist_get_node_type(version) != PLIST_UINT) {
        error = "not a keyed archive: missing $version";
        return false;
    }
    std::uint64_t versionNumber = 0;
    plist_get_uint_val(version, &versionNumber);
    if (versionNumber != kArchiveVersion) {
        error = "unsupported keyed-archive $version " + std::to_string(versionNumber);
        return false;
    }
    archive.top = plist_dict_get_item(root, "$top");
    if (archive.top == nullptr || plist_get_node_type(archive.top) != PLIST_DICT) {
        error = "not a keyed archive: missing $top";
        return false;
    }
    archive.objects = plist_dict_get_item(root, "$objects");
    if (archive.objects == nullptr || plist_get_node_type(archive.objects) != PLIST_ARRAY) {
        error = "not a keyed archive: missing $objects";
        return false;
    }
    if (plist_array_get_size(archive.objects) == 0 ||
        !isPlistString(plist_array_get_item(archive.objects, 0), kNullObjectMarker)) {
        error = "not a keyed archive: $objects does not start with $null";
        return false;
    }
    return true;
}

KeyedArchiveDecoded failure(std::string error) {
    return KeyedArchiveDecoded{std::nullopt, std::move(error)};
}

// ---- encoding ----

class Archiver {
  public:
    Archiver() : objects_(plist_new_array()) { plist_array_append_item(objects_.get(), plist_new_string("$null")); }

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

    KeyedArchiveEncoded finish(std::uint64_t rootUid) {
        PlistOwner root(plist_new_dict());
        plist_dict_set_item(root.get(), "$version", plist_new_uint(kArchiveVersion));
        plist_dict_set_item(root.get(), "$archiver", plist_new_string(std::string(kArchiverName).c_str()));
        plist_t top = plist_new_dict();
        plist_dict_set_item(top, kKeyedArchiveRootKey, plist_new_uid(rootUid));
        plist_dict_set_item(root.get(), "$top", top);
        plist_dict_set_item(root.get(), "$objects", objects_.release());
        char *bytes = nullptr;
        std::uint32_t length = 0;
        plist_to_bin(root.get(), &bytes, &length);
        if (bytes == nullptr) {
            return KeyedArchiveEncoded{std::nullopt, "cannot write the binary property list"};
        }
        std::string out(bytes, length);
        plist_to_bin_free(bytes);
        return KeyedArchiveEncoded{std::move(out), {}};
    }

    const std::string &error() const { return error_; }

  private:
    bool fail(std::string message) {
        error_ = std::move(message);
        return false;
    }

    std::uint64_t append(plist_t object) {
        plist_array_append_item(objects_.get(), object);
        return plist_array_get_size(objects_.get()) - 1;
    }

    // The object is given its number before its contents, so a container precedes what it holds.
    std::uint64_t reserve() { return append(plist_new_bool(0)); }
    void fill(std::uint64_t uid, plist_t object) {
        plist_array_set_item(objects_.get(), object, static_cast<std::uint32_t>(uid));
    }

    bool encodeString(const std::string &text, std::uint64_t &uid) {
        if (text.find('\0') != std::string::npos) {
            return fail("a string with an embedded NUL cannot be archived");
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

    PlistOwner objects_;
    std::unordered_map<std::string, std::uint64_t> strings_;
    std::unordered_map<std::string, std::uint64_t> classes_;
    std::string error_;
};

} // namespace

KeyedArchiveDecoded decodeKeyedArchive(std::string_view bytes, const KeyedArchiveReadOptions &options) {
    OpenedArchive archive;
    std::string error;
    if (!openArchive(bytes, archive, error)) {
        return failure(std::move(error));
    }
    plist_t root = plist_dict_get_item(archive.top, kKeyedArchiveRootKey);
    if (root == nullptr) {
        return failure("keyed archive has no \"root\" object in $top");
    }
    Unarchiver unarchiver(archive.objects, bytes.size(), options);
    Value value;
    if (!unarchiver.decodeReference(root, 0, value)) {
        return failure(unarchiver.error());
    }
    return KeyedArchiveDecoded{std::move(value), {}};
}

KeyedArchiveDecoded decodeKeyedArchiveTop(std::string_view bytes, const KeyedArchiveReadOptions &options) {
    OpenedArchive archive;
    std::string error;
    if (!openArchive(bytes, archive, error)) {
        return failure(std::move(error));
    }
    Unarchiver unarchiver(archive.objects, bytes.size(), options);
    Dictionary top;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(archive.top, &iterator);
    while (iterator != nullptr) {
        char *key = nullptr;
        plist_t node = nullptr;
        plist_dict_next_item(archive.top, iterator, &key, &node);
        if (node == nullptr) {
            std::free(key);
            break;
        }
        const std::string name = key == nullptr ? std::string() : std::string(key);
        std::free(key);
        Value value;
        if (!unarchiver.decodeReference(node, 0, value)) {
            std::free(iterator);
            return failure(unarchiver.error());
        }
        top.set(Value(name), std::move(value));
    }
    std::free(iterator);
    return KeyedArchiveDecoded{Value(std::move(top)), {}};
}

KeyedArchiveEncoded encodeKeyedArchive(const Value &root) {
    Archiver archiver;
    std::uint64_t rootUid = 0;
    if (!archiver.encode(root, 0, rootUid)) {
        return KeyedArchiveEncoded{std::nullopt, archiver.error()};
    }
    return archiver.finish(rootUid);
}

} // namespace qv::posix
