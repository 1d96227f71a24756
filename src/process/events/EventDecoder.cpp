#include "process/events/EventDecoder.h"

#include "platform/Accounts.h"
#include "platform/Errors.h"
#include "platform/Platform.h"
#include "process/ProcessShared.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace Velmor {

namespace {
static_assert(std::endian::native == std::endian::little, "payloads are little-endian");

constexpr std::string_view nameSpace = "root\\WMI";
constexpr std::string_view baseOfEvents = "EventTrace";
constexpr uint32_t arrayBit = 0x2000;
constexpr size_t sidHead = 8;     // bytes in front of the sub-authorities
constexpr size_t longestSid = 68; // 15 sub-authorities
constexpr size_t guidSize = 16;
constexpr size_t countSize = 2; // of a counted text's count

enum class Cim : uint32_t {
    sint16 = 2,
    sint32 = 3,
    string = 8,
    boolean = 11,
    object = 13,
    sint8 = 16,
    uint8 = 17,
    uint16 = 18,
    uint32 = 19,
    sint64 = 20,
    uint64 = 21,
    char16 = 103,
};

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

const SchemaQualifier* find(const SchemaQualifiers& qualifiers, std::string_view name) {
    for (const SchemaQualifier& qualifier : qualifiers)
        if (qualifier.name == name)
            return &qualifier;
    return nullptr;
}

const int32_t* findNumber(const SchemaQualifiers& qualifiers, std::string_view name) {
    const SchemaQualifier* qualifier = find(qualifiers, name);
    return qualifier ? std::get_if<int32_t>(&qualifier->value) : nullptr;
}

const std::string* findText(const SchemaQualifiers& qualifiers, std::string_view name) {
    const SchemaQualifier* qualifier = find(qualifiers, name);
    return qualifier ? std::get_if<std::string>(&qualifier->value) : nullptr;
}

bool describesType(const SchemaClass& typeClass, int32_t eventType) {
    const SchemaQualifier* qualifier = find(typeClass.qualifiers, "EventType");
    if (!qualifier)
        return false;
    if (const auto* number = std::get_if<int32_t>(&qualifier->value))
        return *number == eventType;
    const auto* numbers = std::get_if<std::vector<int32_t>>(&qualifier->value);
    return numbers && std::find(numbers->begin(), numbers->end(), eventType) != numbers->end();
}

/// Whether a class is of that version; one that has none is of any.
bool hasVersion(const SchemaClass& eventClass, int32_t version) {
    const SchemaQualifier* qualifier = find(eventClass.qualifiers, "EventVersion");
    if (!qualifier)
        return true;
    const auto* number = std::get_if<int32_t>(&qualifier->value);
    return number && *number == version;
}

const uint8_t* unknownType() {
    std::fputs("Unknown CIM type\n", stdout);
    return nullptr;
}
} // namespace

/// What may still be read of a payload.
class EventDecoder::Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    const uint8_t* end() const { return data_ + size_; }

    /// The position behind `count` bytes; null if there are fewer.
    const uint8_t* behind(size_t count) const { return count <= size_ ? data_ + count : nullptr; }
    Bytes from(size_t offset) const { return {data_ + offset, size_ - offset}; }

    /// The number at `offset`, whose bytes must be there.
    template <typename Number>
    Number at(size_t offset) const {
        Number number;
        std::memcpy(&number, data_ + offset, sizeof(number));
        return number;
    }

    /// The last of `count` numbers goes to `slot`, 0 if there are none.
    template <typename Number>
    const uint8_t* take(uint32_t count, Number& slot) const {
        const size_t width = size_t{count} * sizeof(Number);
        if (width > size_)
            return nullptr;
        slot = count == 0 ? Number{0} : at<Number>(width - sizeof(Number));
        return data_ + width;
    }

private:
    const uint8_t* data_;
    size_t size_;
};

uint32_t EventDecoder::connectNamespace() {
    if (processShared().hasEventSchema)
        return SchemaConnection::connected;
    const uint32_t result = platform().eventSchema->connect(nameSpace);
    processShared().hasEventSchema = result == SchemaConnection::connected;
    return result;
}

const SchemaClass* EventDecoder::findEventClass(std::string_view guidText, int32_t version) {
    std::span<const SchemaClass* const> classes;
    if (!platform().eventSchema->classesBelow(baseOfEvents, false, classes))
        return nullptr;
    for (const SchemaClass* candidate : classes) {
        const std::string* guid = findText(candidate->qualifiers, "Guid");
        if (guid && equalIgnoringCase(*guid, guidText) && hasVersion(*candidate, version))
            return candidate;
    }
    return nullptr;
}

const SchemaClass* EventDecoder::findEventTypeClass(const SchemaClass& eventClass, int32_t eventType) {
    std::span<const SchemaClass* const> classes;
    if (eventClass.path.empty() || !platform().eventSchema->classesBelow(eventClass.path, true, classes))
        return nullptr;
    for (const SchemaClass* candidate : classes)
        if (describesType(*candidate, eventType))
            return candidate;
    return nullptr;
}

bool EventDecoder::getProperties(const SchemaClass& typeClass, PropertyList& list, std::vector<uint32_t>& order) {
    const size_t count = typeClass.properties.size();
    constexpr uint32_t free = UINT32_MAX;
    list.clear();
    order.assign(count, free);
    for (const SchemaProperty& property : typeClass.properties) {
        const int32_t* place = findNumber(property.qualifiers, "WmiDataId");
        if (!place || *place < 1 || static_cast<size_t>(*place) > count ||
            order[static_cast<size_t>(*place) - 1] != free)
            return false;
        order[static_cast<size_t>(*place) - 1] = static_cast<uint32_t>(list.size());
        list.push_back(&property);
    }
    return true;
}

std::string_view EventDecoder::getPropertyName(const SchemaProperty& property) {
    const std::string* description = findText(property.qualifiers, "Description");
    return description ? *description : property.name;
}

const uint8_t* EventDecoder::getPropertyValue(const SchemaProperty& property, const uint8_t* data, uint16_t remaining) {
    const Bytes bytes(data, remaining);
    if (find(property.qualifiers, "Pointer"))
        return platform().kernelTrace->pointerSize() == sizeof(uint64_t) ? bytes.take(1, values_.pointerValue64)
                                                                         : bytes.take(1, values_.pointerValue);
    uint32_t count = 1;
    if (property.cimType & arrayBit) {
        const int32_t* most = findNumber(property.qualifiers, "MAX");
        if (!most || *most < 0) {
            processShared().logger.debug(1, "getPropertyValue: Failed to retrieve the MAX qualifier.");
            return nullptr;
        }
        count = static_cast<uint32_t>(*most);
    }
    switch (static_cast<Cim>(property.cimType & ~arrayBit)) {
    case Cim::sint16:
        return bytes.take(count, values_.sint16Value);
    case Cim::sint32:
        return bytes.take(count, values_.sint32Value);
    case Cim::boolean:
        return bytes.take(count, values_.booleanValue);
    case Cim::uint16:
        return bytes.take(count, values_.uint16Value);
    case Cim::uint32:
        return bytes.take(count, values_.uint32Value);
    case Cim::sint64:
        return bytes.take(count, values_.sint64Value);
    case Cim::uint64:
        return bytes.take(count, values_.uint64Value);
    case Cim::char16:
        return bytes.behind(size_t{count} * sizeof(uint16_t));
    case Cim::sint8:
    case Cim::uint8:
        return readBytes(property, count, bytes);
    case Cim::object:
        return readObject(property, bytes);
    case Cim::string:
        return readTexts(property, count, bytes);
    }
    return unknownType();
}

const uint8_t* EventDecoder::readBytes(const SchemaProperty& property, uint32_t count, Bytes bytes) {
    if (!find(property.qualifiers, "Extension"))
        return bytes.behind(count);
    const uint8_t* end = bytes.behind(guidSize);
    const std::string* extension = findText(property.qualifiers, "Extension");
    if (end && extension && equalIgnoringCase(*extension, "Guid"))
        values_.guidValue = bytes.at<TraceGuid>(0);
    return end;
}

const uint8_t* EventDecoder::readObject(const SchemaProperty& property, Bytes bytes) {
    const std::string* extension = findText(property.qualifiers, "Extension");
    if (!extension) {
        std::fputs("Object data type is missing Extension qualifier.\n", stdout);
        return nullptr;
    }
    return equalIgnoringCase(*extension, "Sid") ? readSid(bytes) : unknownType();
}

/// A SID stands behind a pointer to itself and its attributes; of one that is absent only a zero stands there.
const uint8_t* EventDecoder::readSid(Bytes bytes) {
    if (bytes.size() < sizeof(uint32_t))
        return nullptr;
    if (bytes.at<uint32_t>(0) == 0) {
        values_.accountName.clear();
        values_.accountDomain.clear();
        return bytes.behind(sizeof(uint32_t));
    }
    const size_t begin = 2 * size_t{platform().kernelTrace->pointerSize()};
    if (bytes.size() < begin + sidHead)
        return nullptr;
    const Bytes sid = bytes.from(begin);
    const uint8_t* end = sid.behind(sidHead + sizeof(uint32_t) * sid.at<uint8_t>(1));
    if (!end)
        return nullptr;
    std::string user;
    std::string domain;
    uint32_t error = NativeError::success;
    if (platform().accounts->lookup(sidText({sid.data(), std::min(sid.size(), longestSid)}), user, domain, error)) {
        values_.accountName = std::move(user);
        values_.accountDomain = std::move(domain);
    }
    return end;
}

namespace {
/// How the length of a text is told.
enum class Termination : uint8_t { nullTerminated, counted, reverseCounted, notCounted, unknown };

Termination terminationOf(const SchemaProperty& property) {
    const SchemaQualifier* qualifier = find(property.qualifiers, "StringTermination");
    if (!qualifier)
        return Termination::nullTerminated;
    const auto* word = std::get_if<std::string>(&qualifier->value);
    constexpr std::array words{"NullTerminated", "Counted", "ReverseCounted", "NotCounted"};
    for (size_t i = 0; word && i < words.size(); ++i)
        if (equalIgnoringCase(*word, words[i]))
            return static_cast<Termination>(i);
    return Termination::unknown;
}

/// Characters up to and including the terminator among `most`; 0 if there is none.
size_t terminatedLength(const uint8_t* text, size_t most, size_t width) {
    for (size_t i = 0; i < most; ++i)
        if (text[i * width] == 0 && text[i * width + width - 1] == 0)
            return i + 1;
    return 0;
}

/// The text of `length` characters, up to a terminator in it. What has no narrow character becomes "?".
std::string narrowText(const uint8_t* text, size_t length, size_t width) {
    const size_t terminated = terminatedLength(text, length, width);
    const size_t size = terminated == 0 ? length : terminated - 1;
    if (width == 1)
        return {reinterpret_cast<const char*>(text), size};
    std::string narrow(size, '?');
    for (size_t i = 0; i < size; ++i)
        if (text[2 * i + 1] == 0)
            narrow[i] = static_cast<char>(text[2 * i]);
    return narrow;
}
} // namespace

const uint8_t* EventDecoder::readTexts(const SchemaProperty& property, uint32_t count, Bytes bytes) {
    const Termination termination = terminationOf(property);
    const size_t width = find(property.qualifiers, "Format") ? 2 : 1;
    const bool hasCount = termination == Termination::counted || termination == Termination::reverseCounted;
    if (count == 0)
        values_.stringValue.clear();
    for (uint32_t i = 0; i < count; ++i) {
        size_t length = 0;
        const size_t begin = hasCount ? countSize : 0;
        if (bytes.size() < begin)
            return nullptr;
        if (hasCount) {
            const auto told = bytes.at<uint16_t>(0);
            length = termination == Termination::counted ? told : static_cast<uint16_t>(told << 8U | told >> 8U);
        }
        const Bytes text = bytes.from(begin);
        if (termination == Termination::nullTerminated)
            length = terminatedLength(text.data(), text.size() / width, width);
        else if (termination == Termination::notCounted)
            length = text.size() / width;
        const uint8_t* end = termination == Termination::notCounted ? text.end() : text.behind(length * width);
        if (!end || (termination == Termination::nullTerminated && length == 0))
            return nullptr;
        values_.stringValue = narrowText(text.data(), length, width);
        if (end == bytes.data()) // further elements would stay where they are as well
            return end;
        bytes = Bytes(end, static_cast<size_t>(bytes.end() - end));
    }
    return bytes.data();
}

std::string guidText(const TraceGuid& guid) {
    constexpr std::array<int8_t, 20> places{3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text = "{00000000-0000-0000-0000-000000000000}";
    size_t at = 1;
    for (const int8_t place : places) {
        if (place < 0) {
            ++at; // the hyphen stands there
            continue;
        }
        const uint8_t byte = guid[static_cast<size_t>(place)];
        text[at++] = digits[byte >> 4U];
        text[at++] = digits[byte & 15U];
    }
    return text;
}

std::string sidText(std::span<const uint8_t> bytes) {
    if (bytes.size() < sidHead || bytes.size() < sidHead + sizeof(uint32_t) * bytes[1])
        return {};
    uint64_t authority = 0;
    for (size_t i = 2; i < sidHead; ++i)
        authority = authority << 8U | bytes[i];
    std::string text = "S-" + std::to_string(bytes[0]) + "-" + std::to_string(authority);
    for (size_t i = 0; i < bytes[1]; ++i) {
        uint32_t part = 0;
        std::memcpy(&part, bytes.data() + sidHead + i * sizeof(part), sizeof(part));
        text += "-" + std::to_string(part);
    }
    return text;
}

} // namespace Velmor
