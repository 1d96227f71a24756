#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Velmor {

/// A note on a class or a property: a number, several numbers, a text, or the mere fact that it is there.
struct SchemaQualifier {
    std::string name;
    std::variant<std::monostate, int32_t, std::vector<int32_t>, std::string> value;
};
using SchemaQualifiers = std::vector<SchemaQualifier>;

struct SchemaProperty {
    std::string name;
    uint32_t cimType = 0; // 0x2000 marks an array
    SchemaQualifiers qualifiers;
};

struct SchemaClass {
    std::string path; // relative to the name space
    SchemaQualifiers qualifiers;
    std::vector<SchemaProperty> properties; // its own, without those of its base
};

/// Results of connecting.
namespace SchemaConnection {
constexpr uint32_t connected = 0;
constexpr uint32_t noLocator = 1;
constexpr uint32_t noConnection = 2;
} // namespace SchemaConnection

/// The class definitions by which the payloads of events are decoded, as plain data.
class EventSchema {
public:
    virtual ~EventSchema() = default;

    /// Reaches a name space of definitions, for the calling thread.
    virtual uint32_t connect(std::string_view nameSpace) = 0;

    /// The classes below one, in the order of the definitions: all of them, or with `directOnly` its own subclasses.
    /// False if there is no class of that path. The list stays valid until the next call.
    virtual bool classesBelow(std::string_view path, bool directOnly, std::span<const SchemaClass* const>& classes) = 0;
};

} // namespace Velmor
