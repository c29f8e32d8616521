// Binary property lists: a bounded, non-recursive reader that checks every offset, length and reference.
#include "posix/plist/binary_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/text.h"

namespace qv::posix::plist {

namespace {

// A binary property list can name one stored object many times; what it expands to must stay near its size.
constexpr std::uint64_t kDecodedBytesPerInputByte = 4;
constexpr std::uint64_t kDecodedBytesSlack = 4096;

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

enum class BinaryType : unsigned {
    Simple = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    Data = 0x4,
    Ascii = 0x5,
    Utf16 = 0x6,
    Uid = 0x8,
    Array = 0xA,
    Dictionary = 0xD,
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
    bool read(PlistTable &table) {
        if (!readTrailer()) {
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
            if (!readObject(index, object, children, keyCount)) {
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

    const std::string &error() const { return error_; }

  private:
    bool readTrailer() {
        if (size_ < kBinaryMagic.size() + 1 + kTrailerSize) {
            return fail("binary property list is truncated");
        }
        const unsigned char *trailer = data_ + size_ - kTrailerSize;
        offsetSize_ = trailer[kTrailerOffsetSizeAt];
        refSize_ = trailer[kTrailerRefSizeAt];
        objectCount_ = readBigEndian(trailer + kTrailerObjectCountAt, sizeof(std::uint64_t));
        topObject_ = readBigEndian(trailer + kTrailerTopObjectAt, sizeof(std::uint64_t));
        tableOffset_ = readBigEndian(trailer + kTrailerTableOffsetAt, sizeof(std::uint64_t));
        const std::uint64_t tableLimit = size_ - kTrailerSize;
        if (!isValidWidth(offsetSize_) || !isValidWidth(refSize_)) {
            return fail("binary property list has invalid offset or reference sizes");
        }
        if (objectCount_ == 0 || topObject_ >= objectCount_) {
            return fail("binary property list has no valid top object");
        }
        if (tableOffset_ < kBinaryMagic.size() || tableOffset_ > tableLimit ||
            objectCount_ > (tableLimit - tableOffset_) / offsetSize_) {
            return fail("binary property list offset table lies outside the file");
        }
        return true;
    }

    bool fail(const std::string &what) {
        error_ = what;
        return false;
    }

    bool fail(const std::string &what, std::uint64_t index) {
        return fail(what + " in property list object " + std::to_string(index));
    }

    bool fits(std::uint64_t position, std::uint64_t count, std::uint64_t unit) const {
        return position <= tableOffset_ && count <= (tableOffset_ - position) / unit;
    }

    bool spendBytes(std::uint64_t bytes) {
        if (bytes > byteBudget_) {
            return fail("property list expands far beyond its size");
        }
        byteBudget_ -= bytes;
        return true;
    }

    // A length after a marker: the marker's low nibble, or an integer object right after it.
    bool readCount(unsigned info, std::uint64_t &position, std::uint64_t &count, std::uint64_t index) {
        if (info != kExtendedCount) {
            count = info;
            return true;
        }
        if (position >= tableOffset_) {
            return fail("truncated length", index);
        }
        const unsigned marker = data_[position];
        const unsigned widthInfo = marker & kMarkerInfoMask;
        if ((marker >> kMarkerTypeShift) != static_cast<unsigned>(BinaryType::Integer) ||
            widthInfo > kMaxCountIntegerInfo) {
            return fail("length that is not an integer", index);
        }
        const std::uint64_t width = std::uint64_t{1} << widthInfo;
        if (width > tableOffset_ - position - 1) {
            return fail("truncated length", index);
        }
        count = readBigEndian(data_ + position + 1, width);
        position += 1 + width;
        return true;
    }

    bool readObject(std::uint64_t index, PlistObject &object, std::vector<std::uint64_t> &children,
                    std::size_t &keyCount) {
        std::uint64_t position = readBigEndian(data_ + tableOffset_ + index * offsetSize_, offsetSize_);
        if (position < kBinaryMagic.size() || position >= tableOffset_) {
            return fail("offset outside the object area", index);
        }
        const unsigned marker = data_[position++];
        const unsigned info = marker & kMarkerInfoMask;
        std::uint64_t count = 0;
        switch (static_cast<BinaryType>(marker >> kMarkerTypeShift)) {
        case BinaryType::Simple:
            if (marker == kMarkerNull) {
                object.scalar = Value();
            } else if (marker == kMarkerFalse || marker == kMarkerTrue) {
                object.scalar = Value(marker == kMarkerTrue);
            } else {
                return fail("unknown marker", index);
            }
            return true;
        case BinaryType::Integer: {
            if (info > kMaxIntegerInfo) {
                return fail("invalid integer width", index);
            }
            const std::uint64_t width = std::uint64_t{1} << info;
            if (!fits(position, width, 1)) {
                return fail("truncated integer", index);
            }
            // Sixteen-byte integers carry unsigned values; only those that also fit 64 signed bits are kept.
            std::uint64_t bits = 0;
            if (width == kWideIntegerBytes) {
                bits = readBigEndian(data_ + position + sizeof(std::uint64_t), sizeof(std::uint64_t));
                if (readBigEndian(data_ + position, sizeof(std::uint64_t)) != 0 || (bits >> 63U) != 0) {
                    return fail("integer beyond 64 signed bits", index);
                }
            } else {
                bits = readBigEndian(data_ + position, width);
            }
            // Eight-byte integers are signed; shorter ones are unsigned and never reach the sign bit.
            object.scalar = Value(static_cast<long long>(bits));
            return true;
        }
        case BinaryType::Real:
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
            return fail("invalid real", index);
        case BinaryType::Date: {
            if (info != kDateInfo || !fits(position, kDateBytes, 1)) {
                return fail("invalid date", index);
            }
            const std::uint64_t bits = readBigEndian(data_ + position, kDateBytes);
            double seconds = 0;
            std::memcpy(&seconds, &bits, sizeof seconds);
            object.scalar = Value(Date{seconds});
            return true;
        }
        case BinaryType::Data:
        case BinaryType::Ascii:
            if (!readCount(info, position, count, index)) {
                return false;
            }
            if (!fits(position, count, 1)) {
                return fail("truncated data or string", index);
            }
            if (!spendBytes(count)) {
                return false;
            }
            if ((marker >> kMarkerTypeShift) == static_cast<unsigned>(BinaryType::Data)) {
                object.scalar = Value(Bytes(data_ + position, data_ + position + count));
                return true;
            }
            if (std::any_of(data_ + position, data_ + position + count,
                            [](unsigned char byte) { return byte >= 0x80U; })) {
                return fail("non-ASCII byte in an ASCII string", index);
            }
            object.scalar = Value(std::string(reinterpret_cast<const char *>(data_ + position), count));
            return true;
        case BinaryType::Utf16:
            if (!readCount(info, position, count, index)) {
                return false;
            }
            if (!fits(position, count, kUtf16UnitBytes)) {
                return fail("truncated string", index);
            }
            if (!spendBytes(count * kUtf16UnitBytes)) {
                return false;
            }
            object.scalar = Value(utf16ToUtf8(data_ + position, static_cast<std::size_t>(count)));
            return true;
        case BinaryType::Uid:
            if (info + std::size_t{1} > kMaxUidBytes || !fits(position, info + std::uint64_t{1}, 1)) {
                return fail("invalid object reference", index);
            }
            object.type = PlistObject::Type::Uid;
            object.uid = readBigEndian(data_ + position, info + std::size_t{1});
            return true;
        case BinaryType::Array:
        case BinaryType::Dictionary: {
            if (!readCount(info, position, count, index)) {
                return false;
            }
            const bool dictionary = (marker >> kMarkerTypeShift) == static_cast<unsigned>(BinaryType::Dictionary);
            const std::uint64_t slots = dictionary ? 2 : 1;
            if (count > tableOffset_ || !fits(position, count * slots, refSize_)) {
                return fail("container larger than the file", index);
            }
            if (!spendBytes(count * slots * sizeof(std::uint32_t))) {
                return false;
            }
            object.type = dictionary ? PlistObject::Type::Dictionary : PlistObject::Type::Array;
            keyCount = dictionary ? static_cast<std::size_t>(count) : 0;
            children.reserve(static_cast<std::size_t>(count * slots));
            for (std::uint64_t i = 0; i < count * slots; ++i) {
                const std::uint64_t child = readBigEndian(data_ + position + i * refSize_, refSize_);
                if (child >= objectCount_) {
                    return fail("reference out of range", index);
                }
                children.push_back(child);
            }
            return true;
        }
        default:
            return fail("unsupported object type", index);
        }
    }

    static std::string utf16ToUtf8(const unsigned char *units, std::size_t count) {
        constexpr std::uint32_t kReplacement = 0xFFFD;
        const auto unitAt = [units](std::size_t i) {
            return static_cast<std::uint32_t>(readBigEndian(units + i * kUtf16UnitBytes, kUtf16UnitBytes));
        };
        std::string out;
        out.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint32_t unit = unitAt(i);
            if (isHighSurrogate(unit) && i + 1 < count && isLowSurrogate(unitAt(i + 1))) {
                appendUtf8(out, codePointOfSurrogates(unit, unitAt(i + 1)));
                ++i;
                continue;
            }
            // A surrogate without its partner cannot be written as UTF-8.
            appendUtf8(out, isSurrogate(unit) ? kReplacement : unit);
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
    std::string error_;
};

} // namespace

Result<PlistTable> readBinaryPropertyList(std::string_view bytes) {
    PlistTable table;
    BinaryPlistReader reader(bytes);
    if (!reader.read(table)) {
        return fail(ErrorCode::MalformedPropertyList, reader.error());
    }
    return table;
}

} // namespace qv::posix::plist
