#pragma once

#include "platform/CriticalSections.h"

namespace Velmor {

class LinuxCriticalSections : public CriticalSections {
public:
    std::unique_ptr<CriticalSection> create() override;
};

} // namespace Velmor
