#include "platform/linux/trace/LinuxEventSchema.h"

#include "platform/linux/trace/TracePayload.h"

namespace Velmor {

namespace {
constexpr std::string_view processPath = "Process";

SchemaProperty property(const char* name, uint32_t cimType, int32_t place, SchemaQualifiers more = {}) {
    more.push_back({"WmiDataId", place});
    return {name, cimType, std::move(more)};
}
} // namespace

LinuxEventSchema::LinuxEventSchema()
    : process_{std::string(processPath),
               {{"Guid", std::string(TracePayload::guidText)}, {"EventVersion", int32_t{TracePayload::version}}},
               {}},
      startOrEnd_{"Process_StartEnd",
                  {{"EventType", std::vector<int32_t>{1, 2}}},
                  {property("ProcessId", 19, 1), property("ParentId", 19, 2),
                   property("UserSID", 13, 3, {{"Extension", std::string("Sid")}}),
                   property("ImageFileName", 8, 4, {{"StringTermination", std::string("NullTerminated")}})}},
      all_{&process_, &startOrEnd_}, ofProcess_{&startOrEnd_} {}

uint32_t LinuxEventSchema::connect(std::string_view) {
    return SchemaConnection::connected;
}

bool LinuxEventSchema::classesBelow(std::string_view path, bool directOnly,
                                    std::span<const SchemaClass* const>& classes) {
    if (path == processPath)
        classes = ofProcess_;
    else if (path == "EventTrace")
        classes = std::span<const SchemaClass* const>(all_).first(directOnly ? 1 : all_.size());
    else
        return false;
    return true;
}

} // namespace Velmor
