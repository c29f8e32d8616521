// XML property lists: libplist parses them once their nesting is known to be shallow, then they are flattened.
#include "posix/plist/xml_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "posix/plist/libplist_owner.h"

namespace qv::posix::plist {

namespace {

// libplist recurses once per nesting level, so XML nesting is capped before it parses.
constexpr int kMaxXmlNesting = 64;

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

// Nothing when the nesting stays within the cap, else the reason.
std::optional<std::string> nestingTooDeep(std::string_view text) {
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
                return "property list nesting is deeper than " + std::to_string(kMaxXmlNesting);
            }
        }
        at += 1;
    }
    return std::nullopt;
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

} // namespace

Result<PlistTable> readXmlPropertyList(std::string_view text) {
    if (auto reason = nestingTooDeep(text)) {
        return fail(ErrorCode::MalformedPropertyList, std::move(*reason));
    }
    plist_t root = nullptr;
    plist_from_memory(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    if (root == nullptr) {
        return fail(ErrorCode::MalformedPropertyList, "not a well-formed property list");
    }
    const PlistOwner owner(root);
    PlistTable table;
    table.top = flattenXml(root, table);
    return table;
}

} // namespace qv::posix::plist
