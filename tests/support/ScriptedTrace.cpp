#include "support/ScriptedTrace.h"

#include "platform/Errors.h"

namespace Velmor {

namespace {
constexpr uint64_t unitsOfSecond = 10000000;
constexpr uint64_t secondsBefore1970 = 11644473600;
constexpr const char* base = "EventTrace";
} // namespace

PayloadText& PayloadText::sid(uint32_t last, size_t head) {
    bytes_.append(head, '\1');
    return number<uint8_t>(1).number<uint8_t>(2).text(std::string_view("\0\0\0\0\0\26", 6)).number(1U).number(last);
}

std::vector<uint8_t> processPayload(uint32_t pid, std::string_view image, uint32_t parent) {
    PayloadText payload;
    payload.number(0xdeadbeefU).number(pid).number(parent).number(0U).number(0).sid(500, 8);
    return payload.text(image).number<uint8_t>(0).bytes();
}

void ScriptedEvent::handOver(const KernelTrace::EventCallback& use) const {
    TraceEvent event;
    event.type = type;
    event.version = version;
    event.timeStamp = (static_cast<uint64_t>(seconds) + secondsBefore1970) * unitsOfSecond;
    event.guid = guid;
    event.payload = payload;
    if (before)
        before();
    use(event);
    if (behind)
        behind();
}

uint32_t ScriptedTrace::query(std::string_view, TraceProperties& properties) {
    properties.eventsLost = eventsLost;
    properties.namesLost = namesLost;
    return runs ? NativeError::success : NativeError::instanceNotFound;
}

uint32_t ScriptedTrace::start(std::string_view name, const TraceProperties& properties) {
    calls += "start " + std::string(name) + ";";
    started = properties;
    if (startResult == NativeError::success && runs)
        return NativeError::alreadyExists;
    runs = runs || startResult == NativeError::success;
    return startResult;
}

uint32_t ScriptedTrace::stop(std::string_view) {
    calls += "stop;";
    if (!runs || !isStoppable)
        return NativeError::accessDenied;
    runs = false;
    return NativeError::success;
}

TraceHandle ScriptedTrace::open(std::string_view, uint32_t& error) {
    error = openError;
    return error == NativeError::success ? std::make_unique<NativeTrace>() : nullptr;
}

uint32_t ScriptedTrace::process(const TraceHandle&, const EventCallback& onEvent, const BufferCallback& onBuffer) {
    while (!events.empty() || (runs && !endsWhenRead)) {
        if (onWait)
            onWait();
        if (!onBuffer())
            return NativeError::cancelled;
        if (events.empty())
            continue;
        const ScriptedEvent event = std::move(events.front());
        events.pop_front();
        event.handOver(onEvent);
    }
    return processResult;
}

void ScriptedTrace::close(TraceHandle& trace) {
    calls += "close;";
    trace.reset();
}

uint32_t ScriptedSchema::connect(std::string_view) {
    ++connections;
    return connection;
}

bool ScriptedSchema::classesBelow(std::string_view path, bool directOnly,
                                  std::span<const SchemaClass* const>& classes) {
    ++enumerations;
    answer_.clear();
    if (path == base && !directOnly)
        for (const auto& each : classes_)
            answer_.push_back(each.get());
    else if (const auto found = below_.find(path); found != below_.end())
        answer_.assign(found->second.begin(), found->second.end());
    else if (path != base)
        return false;
    classes = answer_;
    return true;
}

SchemaClass& ScriptedSchema::addEventClass(const std::string& path, std::string_view guid, SchemaQualifiers more) {
    more.push_back({"Guid", std::string(guid)});
    classes_.push_back(std::make_unique<SchemaClass>(SchemaClass{path, std::move(more), {}}));
    below_[base].push_back(classes_.back().get());
    below_[path];
    return *classes_.back();
}

SchemaClass& ScriptedSchema::addTypeClass(const std::string& above, const std::string& path,
                                          std::vector<int32_t> types) {
    classes_.push_back(std::make_unique<SchemaClass>(SchemaClass{path, {}, {}}));
    auto& qualifiers = classes_.back()->qualifiers;
    if (types.size() > 1)
        qualifiers.push_back({"EventType", std::move(types)});
    else
        qualifiers.push_back({"EventType", types.front()});
    below_[above].push_back(classes_.back().get());
    return *classes_.back();
}

SchemaProperty ScriptedSchema::property(const std::string& name, uint32_t cimType, int32_t place,
                                        SchemaQualifiers more) {
    more.push_back({"WmiDataId", place});
    return {name, cimType, std::move(more)};
}

void ScriptedSchema::describeProcesses() {
    addEventClass("Process_V0", processGuidText, {{"EventVersion", 0}});
    addEventClass("Process", processGuidText, {{"EventVersion", 2}});
    addTypeClass("Process", "Process_V2_TypeGroup1", {1, 2, 3, 4}).properties = {
        property("ImageFileName", 8, 7, {{"StringTermination", std::string("NullTerminated")}}),
        property("UniqueProcessKey", 19, 1, {{"Pointer", std::monostate()}}),
        property("ProcessId", 19, 2),
        property("ParentId", 19, 3),
        property("SessionId", 19, 4),
        property("ExitStatus", 3, 5),
        property("UserSID", 13, 6, {{"Extension", std::string("Sid")}}),
    };
}

} // namespace Velmor
