// Keyed-archive codec: a bounded reader for binary property lists, libplist for XML ones and for writing.
#include "posix/keyed_archive.h"

#include "base/text.h"

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

// libplist recurses once per nesting level, so XML nesting is capped before it parses.
constexpr int kMaxXmlNesting = 64;
// Binary property lists can name one stored object many times; what they expand to must stay near their size.
constexpr std::uint64_t kDecodedBytesPerInputByte = 4;
constexpr std::uint64_t kDecodedBytesSlack = 4096;
constexpr std::size_t kDecodedValuesPerInputByte = 8;
constexpr std::size_t kDecodedValuesSlack = 1024;

struct PlistDeleter {
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

// A property list as a flat table of objects that refer to each other by position, the shape of the binary
// format. Decoding walks this table; nothing here recurses over input structure.
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

bool isString(const PlistObject *object, std::string_view expected) {
    return object != nullptr && object->type == PlistObject::Type::Scalar && object->scalar.asString() != nullptr &&
           *object->scalar.asString() == expected;
}

// ---- binary property lists ----

constexpr std::string_view kBinaryMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kTrailerOffsetSizeAt = 6;
constexpr std::size_t kTrailerRefSizeAt = 7;
constexpr std::size_t kTrailerObjectCountAt = 8;
constexpr std::size_t kTrailerTopObjectAt = 16;
constexpr std::size_t kTrailerTableOffsetAt = 24;
constexpr std::size_t kWideIntegerBytes = 16;
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

constexpr unsigned kMarkerNull = 0x00;
constexpr unsigned kMarkerFalse = 0x08;
constexpr unsigned kMarkerTrue = 0x09;
constexpr unsigned kRealFloatInfo = 2;
constexpr unsigned kRealDoubleInfo = 3;
constexpr unsigned kDateInfo = 3;
constexpr unsigned kMaxIntegerInfo = 4;
constexpr unsigned kMaxCountIntegerInfo = 3;
constexpr std::size_t kDateBytes = 8;
constexpr std::size_t kUtf16UnitBytes = 2;
constexpr std::size_t kMaxUidBytes = 8;
constexpr std::uint32_t kMaxTableObjects = 0xFFFFFFFFU;

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

class BinaryPlistReader {
  public:
    explicit BinaryPlistReader(std::string_view bytes)
        : data_(reinterpret_cast<const unsigned char *>(bytes.data())), size_(bytes.size()),
          byteBudget_(kDecodedBytesPerInputByte * bytes.size() + kDecodedBytesSlack) {}

    // Reads every object reachable from the top object, each once, with an explicit work list.
    bool read(PlistTable &table, std::string &error) {
        if (!readTrailer(error)) {
            return false;
        }
        std::vector<std::uint32_t> slot(static_cast<std::size_t>(objectCount_), kMaxTableObjects);
        std::vector<std::uint64_t> work;
        auto place = [&](std::uint64_t index) {
            auto &position = slot[static_cast<std::size_t>(index)];
            if (position == kMaxTableObjects) {
                position = static_cast<std::uint32_t>(table.objects.size());
                table.objects.emplace_back();
                work.push_back(index);
            }
            return position;
        };
        // Legitimate archives spend well over eight bytes per object; the hint is capped so lies cost nothing.
        constexpr std::uint64_t kBytesPerObjectHint = 8;
        table.objects.reserve(static_cast<std::size_t>(std::min(objectCount_, size_ / kBytesPerObjectHint + 1)));
        table.top = place(topObject_);
        while (!work.empty()) {
            const std::uint64_t index = work.back();
            work.pop_back();
            const std::uint32_t position = slot[static_cast<std::size_t>(index)];
            std::vector<std::uint64_t> children;
            std::size_t keyCount = 0;
            PlistObject object;
            if (!readObject(index, object, children, keyCount, error)) {
                return false;
            }
            object.keyCount = static_cast<std::uint32_t>(keyCount);
            object.children.reserve(children.size());
            for (const std::uint64_t child : children) {
                object.children.push_back(place(child));
            }
            table.objects[position] = std::move(object);
        }
        return true;
    }

  private:
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
        return true;
    }

    bool fail(std::string &error, const std::string &what, std::uint64_t index) const {
        error = what + " in property list object " + std::to_string(index);
        return false;
    }

    bool fits(std::uint64_t position, std::uint64_t count, std::uint64_t unit) const {
        return position <= tableOffset_ && count <= (tableOffset_ - position) / unit;
    }

    bool spendBytes(std::uint64_t bytes, std::string &error) {
        if (bytes > byteBudget_) {
            error = "property list expands far beyond its size";
            return false;
        }
        byteBudget_ -= bytes;
        return true;
    }

    // A length after a marker: the marker's low nibble, or an integer object right after it.
    bool readCount(unsigned info, std::uint64_t &position, std::uint64_t &count, std::uint64_t index,
                   std::string &error) const {
        if (info != kExtendedCount) {
            count = info;
            return true;
        }
        if (position >= tableOffset_) {
            return fail(error, "truncated length", index);
        }
        const unsigned marker = data_[position];
        const unsigned widthInfo = marker & kMarkerInfoMask;
        if ((marker >> kMarkerTypeShift) != kBinaryInteger || widthInfo > kMaxCountIntegerInfo) {
            return fail(error, "length that is not an integer", index);
        }
        const std::uint64_t width = std::uint64_t{1} << widthInfo;
        if (width > tableOffset_ - position - 1) {
            return fail(error, "truncated length", index);
        }
        count = readBigEndian(data_ + position + 1, width);
        position += 1 + width;
        return true;
    }

    bool readObject(std::uint64_t index, PlistObject &object, std::vector<std::uint64_t> &children,
                    std::size_t &keyCount, std::string &error) {
        std::uint64_t position = readBigEndian(data_ + tableOffset_ + index * offsetSize_, offsetSize_);
        if (position < kBinaryMagic.size() || position >= tableOffset_) {
            return fail(error, "offset outside the object area", index);
        }
        const unsigned marker = data_[position++];
        const unsigned info = marker & kMarkerInfoMask;
        std::uint64_t count = 0;
        switch (marker >> kMarkerTypeShift) {
        case kBinarySimple:
            if (marker == kMarkerNull) {
                object.scalar = Value();
            } else if (marker == kMarkerFalse || marker == kMarkerTrue) {
                object.scalar = Value(marker == kMarkerTrue);
            } else {
                return fail(error, "unknown marker", index);
            }
            return true;
        case kBinaryInteger: {
            if (info > kMaxIntegerInfo) {
                return fail(error, "invalid integer width", index);
            }
            const std::uint64_t width = std::uint64_t{1} << info;
            if (!fits(position, width, 1)) {
                return fail(error, "truncated integer", index);
            }
            // Sixteen-byte integers carry unsigned values; only those that also fit 64 signed bits are kept.
            std::uint64_t bits = 0;
            if (width == kWideIntegerBytes) {
                bits = readBigEndian(data_ + position + sizeof(std::uint64_t), sizeof(std::uint64_t));
                if (readBigEndian(data_ + position, sizeof(std::uint64_t)) != 0 || (bits >> 63U) != 0) {
                    return fail(error, "integer beyond 64 signed bits", index);
                }
            } else {
                bits = readBigEndian(data_ + position, width);
            }
            // Eight-byte integers are signed; shorter ones are unsigned and never reach the sign bit.
            object.scalar = Value(static_cast<long long>(bits));
            return true;
        }
        case kBinaryReal:
            if (info == kRealFloatInfo && fits(position, sizeof(float), 1)) {
                const auto bits = static_cast<std::uint32_t>(readBigEndian(data_ + position, sizeof(float)));
                float real = 0;
                std::memcpy(&real, &bits, sizeof real);
                object.scalar = Value(static_cast<double>(real));
                return true;
            }
            if (info == kRealDoubleInfo && fits(position, sizeof(double), 1)) {
                const std::uint64_t bits = readBigEndian(data_ + position, sizeof(double));
                double real = 0;
                std::memcpy(&real, &bits, sizeof real);
                object.scalar = Value(real);
                return true;
            }
            return fail(error, "invalid real", index);
        case kBinaryDate: {
            if (info != kDateInfo || !fits(position, kDateBytes, 1)) {
                return fail(error, "invalid date", index);
            }
            const std::uint64_t bits = readBigEndian(data_ + position, kDateBytes);
            double seconds = 0;
            std::memcpy(&seconds, &bits, sizeof seconds);
            object.scalar = Value(Date{seconds});
            return true;
        }
        case kBinaryData:
        case kBinaryAscii:
            if (!readCount(info, position, count, index, error)) {
                return false;
            }
            if (!fits(position, count, 1)) {
                return fail(error, "truncated data or string", index);
            }
            if (!spendBytes(count, error)) {
                return false;
            }
            if ((marker >> kMarkerTypeShift) == kBinaryData) {
                object.scalar = Value(Bytes(data_ + position, data_ + position + count));
                return true;
            }
            if (std::any_of(data_ + position, data_ + position + count,
                            [](unsigned char byte) { return byte >= 0x80U; })) {
                return fail(error, "non-ASCII byte in an ASCII string", index);
            }
            object.scalar = Value(std::string(reinterpret_cast<const char *>(data_ + position), count));
            return true;
        case kBinaryUtf16:
            if (!readCount(info, position, count, index, error)) {
                return false;
            }
            if (!fits(position, count, kUtf16UnitBytes)) {
                return fail(error, "truncated string", index);
            }
            if (!spendBytes(count * kUtf16UnitBytes, error)) {
                return false;
            }
            object.scalar = Value(utf16ToUtf8(data_ + position, static_cast<std::size_t>(count)));
            return true;
        case kBinaryUid:
            if (info + std::size_t{1} > kMaxUidBytes || !fits(position, info + std::uint64_t{1}, 1)) {
                return fail(error, "invalid object reference", index);
            }
            object.type = PlistObject::Type::Uid;
            object.uid = readBigEndian(data_ + position, info + std::size_t{1});
            return true;
        case kBinaryArray:
        case kBinaryDictionary: {
            if (!readCount(info, position, count, index, error)) {
                return false;
            }
            const bool dictionary = (marker >> kMarkerTypeShift) == kBinaryDictionary;
            const std::uint64_t slots = dictionary ? 2 : 1;
            if (count > tableOffset_ || !fits(position, count * slots, refSize_)) {
                return fail(error, "container larger than the file", index);
            }
            if (!spendBytes(count * slots * sizeof(std::uint32_t), error)) {
                return false;
            }
            object.type = dictionary ? PlistObject::Type::Dictionary : PlistObject::Type::Array;
            keyCount = dictionary ? static_cast<std::size_t>(count) : 0;
            children.reserve(static_cast<std::size_t>(count * slots));
            for (std::uint64_t i = 0; i < count * slots; ++i) {
                const std::uint64_t child = readBigEndian(data_ + position + i * refSize_, refSize_);
                if (child >= objectCount_) {
                    return fail(error, "reference out of range", index);
                }
                children.push_back(child);
            }
            return true;
        }
        default:
            return fail(error, "unsupported object type", index);
        }
    }

    static std::string utf16ToUtf8(const unsigned char *units, std::size_t count) {
        constexpr std::uint32_t kHighSurrogateFirst = 0xD800;
        constexpr std::uint32_t kLowSurrogateFirst = 0xDC00;
        constexpr std::uint32_t kSurrogateEnd = 0xE000;
        constexpr std::uint32_t kReplacement = 0xFFFD;
        constexpr std::uint32_t kSupplementaryBase = 0x10000;
        constexpr unsigned kSurrogateBits = 10;
        std::string out;
        out.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const auto unit = static_cast<std::uint32_t>(readBigEndian(units + i * kUtf16UnitBytes, kUtf16UnitBytes));
            if (unit >= kHighSurrogateFirst && unit < kLowSurrogateFirst && i + 1 < count) {
                const auto next =
                    static_cast<std::uint32_t>(readBigEndian(units + (i + 1) * kUtf16UnitBytes, kUtf16UnitBytes));
                if (next >= kLowSurrogateFirst && next < kSurrogateEnd) {
                    appendUtf8(out, kSupplementaryBase + ((unit - kHighSurrogateFirst) << kSurrogateBits) +
                                        (next - kLowSurrogateFirst));
                    ++i;
                    continue;
                }
            }
            appendUtf8(out, unit >= kHighSurrogateFirst && unit < kSurrogateEnd ? kReplacement : unit);
        }
        return out;
    }

    const unsigned char *data_;
    std::size_t size_;
    std::uint64_t byteBudget_;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t topObject_ = 0;
    std::uint64_t tableOffset_ = 0;
};

// ---- XML property lists: nesting is capped before libplist parses them ----

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
            } else if (!selfClosing && ++depth > kMaxXmlNesting) {
                error = "property list nesting is deeper than " + std::to_string(kMaxXmlNesting);
                return false;
            }
        }
        at += 1;
    }
    return true;
}

std::string_view plistString(plist_t node) {
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text == nullptr ? std::string_view() : std::string_view(text, static_cast<std::size_t>(length));
}

// XML spells an object reference as a dictionary whose only key is "CF$UID".
bool xmlReference(plist_t node, std::uint64_t &uid) {
    if (plist_get_node_type(node) != PLIST_DICT || plist_dict_get_size(node) != 1) {
        return false;
    }
    plist_t number = plist_dict_get_item(node, "CF$UID");
    if (number == nullptr || plist_get_node_type(number) != PLIST_UINT) {
        return false;
    }
    plist_get_uint_val(number, &uid);
    return true;
}

// Nesting was capped before parsing, so this recursion is bounded.
std::uint32_t flattenXml(plist_t node, PlistTable &table) {
    const auto index = static_cast<std::uint32_t>(table.objects.size());
    table.objects.emplace_back();
    PlistObject object;
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        if (xmlReference(node, object.uid)) {
            object.type = PlistObject::Type::Uid;
            break;
        }
        object.type = PlistObject::Type::Dictionary;
        std::vector<std::uint32_t> keys;
        std::vector<std::uint32_t> values;
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
            PlistObject name;
            name.scalar = Value(key == nullptr ? "" : key);
            std::free(key);
            keys.push_back(static_cast<std::uint32_t>(table.objects.size()));
            table.objects.push_back(std::move(name));
            values.push_back(flattenXml(item, table));
        }
        std::free(iterator);
        object.keyCount = static_cast<std::uint32_t>(keys.size());
        object.children = std::move(keys);
        object.children.insert(object.children.end(), values.begin(), values.end());
        break;
    }
    case PLIST_ARRAY: {
        object.type = PlistObject::Type::Array;
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        while (iterator != nullptr) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator, &item);
            if (item == nullptr) {
                break;
            }
            object.children.push_back(flattenXml(item, table));
        }
        std::free(iterator);
        break;
    }
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        object.scalar = Value(flag != 0);
        break;
    }
    case PLIST_UINT: {
        std::uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        object.scalar = Value(static_cast<long long>(bits)); // negative numbers arrive as their 64-bit pattern
        break;
    }
    case PLIST_REAL: {
        double real = 0;
        plist_get_real_val(node, &real);
        object.scalar = Value(real);
        break;
    }
    case PLIST_STRING:
    case PLIST_KEY:
        object.scalar = Value(plistString(node));
        break;
    case PLIST_DATA: {
        std::uint64_t length = 0;
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(plist_get_data_ptr(node, &length));
        object.scalar = Value(Bytes(bytes, bytes + length));
        break;
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        constexpr double kMicrosecondsPerSecond = 1e6;
        object.scalar = Value(Date{seconds + microseconds / kMicrosecondsPerSecond});
        break;
    }
    case PLIST_UID:
        object.type = PlistObject::Type::Uid;
        plist_get_uid_val(node, &object.uid);
        break;
    default:
        break;
    }
    table.objects[index] = std::move(object);
    return index;
}

bool readPropertyList(std::string_view bytes, PlistTable &table, std::string &error) {
    if (bytes.empty()) {
        error = "empty input is not a keyed archive";
        return false;
    }
    if (bytes.size() > kMaxKeyedArchiveBytes) {
        error = "keyed archive is larger than " + std::to_string(kMaxKeyedArchiveBytes) + " bytes";
        return false;
    }
    if (bytes.substr(0, kBinaryMagic.size()) == kBinaryMagic) {
        return BinaryPlistReader(bytes).read(table, error);
    }
    if (!checkXmlNesting(bytes, error)) {
        return false;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (root == nullptr) {
        error = "not a well-formed property list";
        return false;
    }
    const PlistOwner owner(root);
    table.top = flattenXml(root, table);
    return true;
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

struct OpenedArchive {
    PlistTable table;
    const PlistObject *top = nullptr;
    const PlistObject *objects = nullptr;
};

bool openArchive(std::string_view bytes, OpenedArchive &archive, std::string &error) {
    if (!readPropertyList(bytes, archive.table, error)) {
        return false;
    }
    const PlistTable &table = archive.table;
    const PlistObject &root = table.at(table.top);
    if (root.type != PlistObject::Type::Dictionary) {
        error = "not a keyed archive: the property list is not a dictionary";
        return false;
    }
    const PlistObject *archiver = table.member(root, "$archiver");
    if (archiver == nullptr) {
        error = "not a keyed archive: missing $archiver";
        return false;
    }
    if (!isString(archiver, kArchiverName)) {
        error = "not a keyed archive: unknown $archiver";
        return false;
    }
    const PlistObject *version = table.member(root, "$version");
    if (version == nullptr || version->scalar.asInteger() == nullptr) {
        error = "not a keyed archive: missing $version";
        return false;
    }
    if (*version->scalar.asInteger() != static_cast<std::int64_t>(kArchiveVersion)) {
        error = "unsupported keyed-archive $version " + std::to_string(*version->scalar.asInteger());
        return false;
    }
    archive.top = table.member(root, "$top");
    if (archive.top == nullptr || archive.top->type != PlistObject::Type::Dictionary) {
        error = "not a keyed archive: missing $top";
        return false;
    }
    archive.objects = table.member(root, "$objects");
    if (archive.objects == nullptr || archive.objects->type != PlistObject::Type::Array) {
        error = "not a keyed archive: missing $objects";
        return false;
    }
    if (archive.objects->children.empty() || !isString(&table.at(archive.objects->children[0]), kNullObjectMarker)) {
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
    Archiver() { objects_.emplace_back(plist_new_string(std::string(kNullObjectMarker).c_str())); }

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
        plist_t objects = plist_new_array();
        for (PlistOwner &object : objects_) {
            plist_array_append_item(objects, object.release());
        }
        plist_dict_set_item(root.get(), "$objects", objects);
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

KeyedArchiveDecoded decodeKeyedArchive(std::string_view bytes, const KeyedArchiveReadOptions &options) {
    OpenedArchive archive;
    std::string error;
    if (!openArchive(bytes, archive, error)) {
        return failure(std::move(error));
    }
    const PlistObject *root = archive.table.member(*archive.top, kKeyedArchiveRootKey);
    if (root == nullptr) {
        return failure("keyed archive has no \"root\" object in $top");
    }
    Unarchiver unarchiver(archive.table, *archive.objects, bytes.size(), options);
    Value value;
    if (!unarchiver.decodeReference(*root, 0, value)) {
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
    Unarchiver unarchiver(archive.table, *archive.objects, bytes.size(), options);
    Dictionary top;
    const PlistObject &topObjects = *archive.top;
    for (std::size_t i = 0; i < topObjects.keyCount; ++i) {
        const std::string *name = archive.table.keyAt(topObjects, i);
        if (name == nullptr) {
            return failure("$top has a key that is not a string");
        }
        Value value;
        if (!unarchiver.decodeReference(archive.table.at(topObjects.children[topObjects.keyCount + i]), 0, value)) {
            return failure(unarchiver.error());
        }
        top.set(Value(*name), std::move(value));
    }
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
