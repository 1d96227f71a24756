#include "support/ScriptedPerformanceData.h"

#include "platform/Errors.h"

namespace Velmor {

bool ScriptedPerformanceData::counterNames(uint32_t& last, std::string& text, uint32_t&) {
    last = names.empty() ? 0 : names.rbegin()->first;
    text.clear();
    for (const auto& [title, name] : names)
        text.append(std::to_string(title)).append(1, '\0').append(name).append(1, '\0');
    text.push_back('\0');
    return true;
}

std::string ScriptedPerformanceData::present() const {
    constexpr int64_t unitsOfTick = 10000; // 100 ns in a millisecond
    constexpr int64_t ticksOfSecond = 1000;
    PaperObject object{counters, {}, true, clock_.ticks(), ticksOfSecond};
    for (const auto& [pid, raw] : values) {
        std::vector<int64_t>& instance = object.instances.emplace_back();
        for (const PaperCounter& counter : counters) {
            const auto value = raw.find(counter.title);
            instance.push_back(counter.title == PerfTitle::processId ? pid : value == raw.end() ? 0 : value->second);
        }
    }
    return PaperSample{{object}, 1, clock_.ticks(), ticksOfSecond, clock_.ticks() * unitsOfTick}.bytes();
}

bool ScriptedPerformanceData::sample(char* buffer, size_t& size, uint32_t& error) {
    asked.push_back(size);
    if (!canSample) {
        error = NativeError::accessDenied;
        return false;
    }
    const std::string block = blocks.empty() ? present() : blocks.front();
    if (block.size() > size) {
        error = NativeError::moreData;
        return false;
    }
    if (!blocks.empty())
        blocks.pop_front();
    block.copy(buffer, block.size());
    size = block.size();
    ++samples;
    return true;
}

} // namespace Velmor
