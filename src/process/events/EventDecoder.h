#pragma once

#include "platform/EventSchema.h"
#include "platform/KernelTrace.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// The values that a payload gave, each the last one read of its type.
struct EventValues {
    uint32_t pointerValue = 0;
    uint64_t pointerValue64 = 0;
    int16_t sint16Value = 0;
    int32_t sint32Value = 0;
    int64_t sint64Value = 0;
    uint16_t uint16Value = 0;
    uint32_t uint32Value = 0;
    uint64_t uint64Value = 0;
    uint32_t booleanValue = 0;
    TraceGuid guidValue{};
    std::string stringValue;
    std::string accountName;
    std::string accountDomain;
};

/// Reads the payload of an event by the class definitions of the system: the class of the event's GUID and version,
/// then its subclass for the event's type, whose properties tell order and form of the fields. Nothing of the
/// definitions is kept. One thread uses an object.
class EventDecoder {
public:
    using PropertyList = std::vector<const SchemaProperty*>;

    /// Reaches the definitions; a result of `SchemaConnection`. Once reached they stay so to the end of the program.
    static uint32_t connectNamespace();

    /// The class of a GUID in text form whose version is that, or that has none; null if there is none.
    static const SchemaClass* findEventClass(std::string_view guidText, int32_t version);

    /// The first direct subclass that describes events of that type; null if there is none.
    static const SchemaClass* findEventTypeClass(const SchemaClass& eventClass, int32_t eventType);

    /// The properties of a class, and in `order` their indexes by place in the payload. False if a property lacks its
    /// place, or if the places aren't just 1 to the number of properties.
    static bool getProperties(const SchemaClass& typeClass, PropertyList& list, std::vector<uint32_t>& order);

    /// What a property is called: its description if it has one.
    static std::string_view getPropertyName(const SchemaProperty& property);

    /// Reads the value at `data`, of which `remaining` bytes may be read, and returns the position behind it. Null, and
    /// no value, if it can't be read or would end behind what remains.
    const uint8_t* getPropertyValue(const SchemaProperty& property, const uint8_t* data, uint16_t remaining);

    const EventValues& values() const { return values_; }

private:
    class Bytes;

    const uint8_t* readBytes(const SchemaProperty& property, uint32_t count, Bytes bytes);
    const uint8_t* readObject(const SchemaProperty& property, Bytes bytes);
    const uint8_t* readSid(Bytes bytes);
    const uint8_t* readTexts(const SchemaProperty& property, uint32_t count, Bytes bytes);

    EventValues values_;
};

/// "{9E814AAD-3204-11D2-9A82-006008A86939}"
std::string guidText(const TraceGuid& guid);

/// The text form of the SID at the front of `bytes`; empty if there is no whole one.
std::string sidText(std::span<const uint8_t> bytes);

} // namespace Velmor
