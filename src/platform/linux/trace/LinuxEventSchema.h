#pragma once

#include "platform/EventSchema.h"

#include <vector>

namespace Velmor {

/// Describes what `LinuxKernelTrace` writes.
class LinuxEventSchema : public EventSchema {
public:
    LinuxEventSchema();
    uint32_t connect(std::string_view nameSpace) override;
    bool classesBelow(std::string_view path, bool directOnly, std::span<const SchemaClass* const>& classes) override;

private:
    SchemaClass process_;
    SchemaClass startOrEnd_;
    std::vector<const SchemaClass*> all_;
    std::vector<const SchemaClass*> ofProcess_;
};

} // namespace Velmor
