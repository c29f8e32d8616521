// Keyed-archive codec: the reference archives decode to their documented content, values round-trip, and hostile
// input is rejected with a reason instead of crashing.
#include "posix/keyed_archive.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <charconv>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/json.h"

namespace {

using qv::Array;
using qv::Dictionary;
using qv::Value;
using qv::posix::decodeKeyedArchive;
using qv::posix::decodeKeyedArchiveTop;
using qv::posix::encodeKeyedArchive;

const std::string kArchives = std::string(QV_TEST_DATA_DIR) + "/keyed-archives/";

std::string readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The documented content of each reference archive: file name -> the one line under "== name".
std::map<std::string, std::string> documentedDumps() {
    std::map<std::string, std::string> dumps;
    std::istringstream text(readBytes(kArchives + "DUMPS.txt"));
    std::string line;
    std::string current;
    while (std::getline(text, line)) {
        if (line.rfind("== ", 0) == 0) {
            current = line.substr(3);
        } else if (!current.empty() && !line.empty()) {
            dumps[current] = line;
            current.clear();
        }
    }
    return dumps;
}

std::string base64(const qv::Bytes &bytes) {
    static const char *alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t chunk = (bytes[i] << 16U) | ((i + 1 < bytes.size() ? bytes[i + 1] : 0) << 8U) |
                                    (i + 2 < bytes.size() ? bytes[i + 2] : 0);
        for (std::size_t j = 0; j < 4; ++j) {
            out += i + j <= bytes.size() ? alphabet[(chunk >> (18 - 6 * j)) & 0x3FU] : '=';
        }
    }
    return out;
}

std::string shortestReal(double real) {
    char buffer[64];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, real).ptr;
    std::string text(buffer, end);
    if (text.find_first_of(".e") == std::string::npos) {
        text += ".0";
    }
    return text;
}

// Renders a decoded value in the notation of DUMPS.txt, so that kinds and mutability are compared too.
Value render(const Value &value) {
    switch (value.kind()) {
    case Value::Kind::Integer:
        return Value("int:" + std::to_string(*value.asInteger()));
    case Value::Kind::Real:
        return Value("real:" + shortestReal(*value.asReal()));
    case Value::Kind::Bytes:
        return Value("data:" + base64(*value.asBytes()));
    case Value::Kind::Date:
        return Value(Dictionary{{"NSDate", Value("time:" + shortestReal(value.asDate()->secondsSinceReferenceDate))}});
    case Value::Kind::Array: {
        Array items;
        for (const Value &item : *value.asArray()) {
            items.push_back(render(item));
        }
        return Value(Dictionary{{value.asArray()->isMutable() ? "NSMutableArray" : "NSArray", Value(items)}});
    }
    case Value::Kind::Dictionary: {
        const Dictionary &dictionary = *value.asDictionary();
        if (const Value *className = dictionary.find(Value("$class"))) {
            if (*className == Value("NSUUID")) {
                std::string hex;
                for (const std::uint8_t byte : *dictionary.find(Value("NS.uuidbytes"))->asBytes()) {
                    static const char *digits = "0123456789abcdef";
                    hex += digits[byte >> 4U];
                    hex += digits[byte & 0xFU];
                }
                return Value(Dictionary{{"NSUUID", Value("uuid:" + hex)}});
            }
            Dictionary fields;
            for (const auto &[key, field] : dictionary) {
                if (!(key == Value("$class"))) {
                    fields.set(key, render(field));
                }
            }
            return Value(Dictionary{{*className->asString(), Value(fields)}});
        }
        Array pairs;
        for (const auto &[key, item] : dictionary) {
            pairs.push_back(Value(Array{render(key), render(item)}));
        }
        return Value(Dictionary{{dictionary.isMutable() ? "NSMutableDictionary" : "NSDictionary", Value(pairs)}});
    }
    default:
        return value;
    }
}

Value renderTop(const Value &top) {
    Dictionary rendered;
    for (const auto &[key, value] : *top.asDictionary()) {
        rendered.set(key, render(value));
    }
    return Value(rendered);
}

// Sets come back as arrays of the same mutability.
std::string withSetsAsArrays(std::string text) {
    for (const auto &[from, to] : {std::pair<std::string, std::string>{"\"NSMutableSet\"", "\"NSMutableArray\""},
                                   {"\"NSSet\"", "\"NSArray\""}}) {
        for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
            text.replace(at, from.size(), to);
        }
    }
    return text;
}

const qv::posix::KeyedArchiveReadOptions kLenient{true};

const std::vector<std::string> kWellFormed = {
    "arrays.bin", "dict.bin",     "dict.xml",       "dtcpuclusterinfo.bin",      "int64-value-in-nskeyedarchive.bin",
    "nsuuid.bin", "onevalue.bin", "primitives.bin", "uint64-key-dictionary.bin", "nestedarrays.bin"};

const std::vector<std::string> kMalformed = {"broken_plist.xml", "missing_archiver.xml", "missing_objects.xml",
                                             "missing_top.xml",  "missing_version.xml",  "wrong_archiver.xml",
                                             "wrong_version.xml"};

class ReferenceArchive : public testing::TestWithParam<std::string> {};

TEST_P(ReferenceArchive, DecodesToItsDocumentedContent) {
    const auto dumps = documentedDumps();
    ASSERT_TRUE(dumps.count(GetParam()));
    const auto decoded = decodeKeyedArchiveTop(readBytes(kArchives + GetParam()), kLenient);
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
    const auto expected = qv::parseJson(withSetsAsArrays(dumps.at(GetParam())));
    ASSERT_TRUE(expected.ok());
    EXPECT_EQ(renderTop(*decoded), *expected) << qv::toJson(renderTop(*decoded)) << "\n" << qv::toJson(*expected);
}

TEST_P(ReferenceArchive, EveryTopObjectRoundTrips) {
    const auto decoded = decodeKeyedArchiveTop(readBytes(kArchives + GetParam()), kLenient);
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
    for (const auto &[key, value] : *decoded->asDictionary()) {
        const auto encoded = encodeKeyedArchive(value);
        ASSERT_TRUE(encoded.ok()) << encoded.error().describe();
        const auto again = decodeKeyedArchive(*encoded);
        ASSERT_TRUE(again.ok()) << again.error().describe();
        EXPECT_EQ(render(*again), render(value)) << *key.asString();
    }
}

INSTANTIATE_TEST_SUITE_P(KeyedArchive, ReferenceArchive, testing::ValuesIn(kWellFormed));

class MalformedArchive : public testing::TestWithParam<std::string> {};

TEST_P(MalformedArchive, IsRejectedWithOneLineReason) {
    const auto decoded = decodeKeyedArchiveTop(readBytes(kArchives + GetParam()), kLenient);
    EXPECT_FALSE(decoded.ok());
    EXPECT_FALSE(decoded.error().detail.empty());
    EXPECT_EQ(decoded.error().detail.find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(KeyedArchive, MalformedArchive, testing::ValuesIn(kMalformed));

TEST(KeyedArchive, CustomClassesAreRejectedUnlessAskedFor) {
    const auto decoded = decodeKeyedArchive(readBytes(kArchives + "dtcpuclusterinfo.bin"));
    EXPECT_FALSE(decoded.ok());
    EXPECT_NE(decoded.error().detail.find("DTCPUClusterInfo"), std::string::npos) << decoded.error().describe();
}

TEST(KeyedArchive, RootKeyIsRequiredForTheSingleObjectReader) {
    EXPECT_FALSE(decodeKeyedArchive(readBytes(kArchives + "dict.bin")).ok()); // stored under "$0"
    EXPECT_TRUE(decodeKeyedArchive(readBytes(kArchives + "int64-value-in-nskeyedarchive.bin")).ok());
}

Value mutableDictionary(Dictionary dictionary) {
    dictionary.setMutable(true);
    return Value(std::move(dictionary));
}

Value mutableArray(Array array) {
    array.setMutable(true);
    return Value(std::move(array));
}

struct RoundTripCase {
    std::string name;
    Value value;
};

class RoundTrip : public testing::TestWithParam<RoundTripCase> {};

TEST_P(RoundTrip, DecodesToTheSameValueKindsAndMutability) {
    const auto encoded = encodeKeyedArchive(GetParam().value);
    ASSERT_TRUE(encoded.ok()) << encoded.error().describe();
    const auto decoded = decodeKeyedArchive(*encoded);
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
    EXPECT_EQ(render(*decoded), render(GetParam().value)) << qv::toJson(render(*decoded));
}

INSTANTIATE_TEST_SUITE_P(
    KeyedArchive, RoundTrip,
    testing::Values(
        RoundTripCase{"BlockedUpdatesTable",
                      mutableDictionary({{Value(284882215LL), Value(Dictionary{{"version", "1.2"}, {"all", false}})},
                                         {"com.example.app", Value(Dictionary{{"version", ""}, {"all", true}})}})},
        RoundTripCase{"Extremes", Value(Array{Value(std::numeric_limits<long long>::min()),
                                              Value(std::numeric_limits<long long>::max()), Value(-1), Value(0)})},
        RoundTripCase{"Scalars", Value(Array{Value(true), Value(false), Value(), Value(2.5), Value("ünïcødé ✓"),
                                             Value(qv::Bytes{0, 1, 255}), Value(qv::Date{625390557.5})})},
        RoundTripCase{"EmptyContainers",
                      Value(Array{Value(Array{}), mutableArray({}), Value(Dictionary{}), mutableDictionary({})})},
        RoundTripCase{"NestedMutability", mutableArray({Value(Dictionary{{"inner", mutableArray({"x", "x"})}})})},
        RoundTripCase{"NonStringKeys", Value(Dictionary{{Value(1), "one"}, {Value(2.5), "real"}})},
        RoundTripCase{"TopLevelString", Value("just a string")}),
    [](const auto &info) { return info.param.name; });

// ---- hostile input ----

// Builds an archive property list by hand so that its object graph can be made as broken as needed.
std::string craftArchive(const std::function<void(plist_t objects, plist_t top)> &fill) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "$version", plist_new_uint(100000));
    plist_dict_set_item(root, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_t top = plist_new_dict();
    plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    fill(objects, top);
    plist_dict_set_item(root, "$top", top);
    plist_dict_set_item(root, "$objects", objects);
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string out(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return out;
}

plist_t classObject(const char *name) {
    plist_t object = plist_new_dict();
    plist_dict_set_item(object, "$classname", plist_new_string(name));
    plist_t names = plist_new_array();
    plist_array_append_item(names, plist_new_string(name));
    plist_array_append_item(names, plist_new_string("NSObject"));
    plist_dict_set_item(object, "$classes", names);
    return object;
}

// An array object at `index` holding the given object references; `classIndex` names an NSArray class object.
plist_t arrayObject(std::uint64_t classIndex, const std::vector<std::uint64_t> &items) {
    plist_t object = plist_new_dict();
    plist_t list = plist_new_array();
    for (const std::uint64_t item : items) {
        plist_array_append_item(list, plist_new_uid(item));
    }
    plist_dict_set_item(object, "NS.objects", list);
    plist_dict_set_item(object, "$class", plist_new_uid(classIndex));
    return object;
}

// A chain of `levels` arrays, each holding the next `fanOut` times: deep when fanOut is 1, explosive when 2.
std::string arrayChain(std::uint64_t levels, std::size_t fanOut) {
    return craftArchive([&](plist_t objects, plist_t top) {
        plist_array_append_item(objects, classObject("NSArray")); // index 1
        for (std::uint64_t level = 0; level < levels; ++level) {
            const std::uint64_t next = level + 1 < levels ? level + 3 : 0;
            plist_array_append_item(objects, arrayObject(1, std::vector<std::uint64_t>(fanOut, next)));
        }
        plist_dict_set_item(top, "root", plist_new_uid(2));
    });
}

// A binary property list from raw object encodings, with four-byte references and eight-byte offsets.
std::string rawBinary(const std::vector<std::string> &objects) {
    std::string body = "bplist00";
    auto bigEndian = [&](std::uint64_t value, int width) {
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
            body += static_cast<char>((value >> shift) & 0xFFU);
        }
    };
    std::vector<std::uint64_t> offsets;
    for (const std::string &object : objects) {
        offsets.push_back(body.size());
        body += object;
    }
    const std::uint64_t table = body.size();
    for (const std::uint64_t offset : offsets) {
        bigEndian(offset, 8);
    }
    body += std::string(6, '\0');
    body += '\x08';
    body += '\x04';
    bigEndian(offsets.size(), 8);
    bigEndian(0, 8);
    bigEndian(table, 8);
    return body;
}

std::string reference(std::uint32_t index) {
    return {static_cast<char>(index >> 24U), static_cast<char>(index >> 16U), static_cast<char>(index >> 8U),
            static_cast<char>(index)};
}

// One-element arrays nested `levels` deep around an integer.
std::string rawBinaryChain(std::uint32_t levels) {
    std::vector<std::string> objects;
    for (std::uint32_t i = 0; i < levels; ++i) {
        objects.push_back("\xA1" + reference(i + 1));
    }
    objects.emplace_back("\x10\x01");
    return rawBinary(objects);
}

struct HostileCase {
    std::string name;
    std::function<std::string()> bytes;
};

class HostileArchive : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileArchive, IsRejectedWithOneLineReason) {
    const auto decoded = decodeKeyedArchiveTop(GetParam().bytes(), kLenient);
    EXPECT_FALSE(decoded.ok());
    EXPECT_FALSE(decoded.error().detail.empty());
    EXPECT_EQ(decoded.error().detail.find('\n'), std::string::npos) << decoded.error().describe();
}

INSTANTIATE_TEST_SUITE_P(
    KeyedArchive, HostileArchive,
    testing::Values(
        HostileCase{"Empty", [] { return std::string(); }},
        HostileCase{"MagicOnly", [] { return std::string("bplist00"); }},
        HostileCase{"TruncatedFixture",
                    [] {
                        const std::string whole = readBytes(kArchives + "dict.bin");
                        return whole.substr(0, whole.size() - 7);
                    }},
        HostileCase{"SelfReference",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, classObject("NSArray"));
                            plist_array_append_item(objects, arrayObject(1, {2}));
                            plist_dict_set_item(top, "root", plist_new_uid(2));
                        });
                    }},
        HostileCase{"Cycle",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, classObject("NSArray"));
                            plist_array_append_item(objects, arrayObject(1, {3}));
                            plist_array_append_item(objects, arrayObject(1, {2}));
                            plist_dict_set_item(top, "root", plist_new_uid(2));
                        });
                    }},
        HostileCase{"ReferenceOutOfRange",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, classObject("NSArray"));
                            plist_array_append_item(objects, arrayObject(1, {99}));
                            plist_dict_set_item(top, "root", plist_new_uid(2));
                        });
                    }},
        HostileCase{"ClassOutOfRange",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, arrayObject(77, {}));
                            plist_dict_set_item(top, "root", plist_new_uid(1));
                        });
                    }},
        HostileCase{"KeysWithoutObjects",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, classObject("NSDictionary"));
                            plist_t dictionary = arrayObject(1, {});
                            plist_t keys = plist_new_array();
                            plist_array_append_item(keys, plist_new_uid(3));
                            plist_dict_set_item(dictionary, "NS.keys", keys);
                            plist_array_append_item(objects, dictionary);
                            plist_array_append_item(objects, plist_new_string("key"));
                            plist_dict_set_item(top, "root", plist_new_uid(2));
                        });
                    }},
        HostileCase{"ObjectsNotAnArray",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, classObject("NSArray"));
                            plist_t array = plist_new_dict();
                            plist_dict_set_item(array, "NS.objects", plist_new_string("nope"));
                            plist_dict_set_item(array, "$class", plist_new_uid(1));
                            plist_array_append_item(objects, array);
                            plist_dict_set_item(top, "root", plist_new_uid(2));
                        });
                    }},
        HostileCase{"MissingClass",
                    [] {
                        return craftArchive([](plist_t objects, plist_t top) {
                            plist_array_append_item(objects, plist_new_dict());
                            plist_dict_set_item(top, "root", plist_new_uid(1));
                        });
                    }},
        HostileCase{"DeepArchiveNesting", [] { return arrayChain(400, 1); }},
        HostileCase{"ExponentialSharing", [] { return arrayChain(60, 2); }},
        HostileCase{"DeepBinaryPropertyList", [] { return rawBinaryChain(200000); }},
        HostileCase{"DeepXmlPropertyList",
                    [] {
                        std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
                        for (int i = 0; i < 100000; ++i) {
                            xml += "<array>";
                        }
                        return xml;
                    }},
        HostileCase{"NonAsciiByteInAsciiString", [] { return rawBinary({"\x51\x80"}); }},
        HostileCase{"HugeObjectCount",
                    [] {
                        std::string bytes = readBytes(kArchives + "onevalue.bin");
                        bytes.replace(bytes.size() - 24, 8, std::string("\x7f\xff\xff\xff\xff\xff\xff\xff", 8));
                        return bytes;
                    }},
        HostileCase{"HugeContainerCount",
                    [] {
                        // An array claiming 2^60 elements, with a length integer after its marker.
                        return rawBinary({std::string("\xAF\x13\x10\0\0\0\0\0\0\0", 10) + reference(1), "\x10\x01"});
                    }}),
    [](const auto &info) { return info.param.name; });

TEST(KeyedArchive, EveryTruncationOfAReferenceArchiveIsRejected) {
    const std::string whole = readBytes(kArchives + "uint64-key-dictionary.bin");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(decodeKeyedArchive(whole.substr(0, length)).ok()) << length;
    }
}

TEST(KeyedArchive, ModestSharingIsAccepted) {
    const auto decoded = decodeKeyedArchive(arrayChain(8, 2));
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
}

TEST(KeyedArchive, UnwritableStringsAreRefused) {
    for (const std::string &text : {std::string("a\0b", 3), std::string("\xff"), std::string("\xed\xa0\x80")}) {
        EXPECT_FALSE(encodeKeyedArchive(Value(text)).ok()) << text.size();
    }
}

} // namespace
