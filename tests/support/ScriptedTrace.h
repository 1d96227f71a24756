#pragma once

#include "platform/EventSchema.h"
#include "platform/KernelTrace.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// The class of process events of the published system, with its GUID as it lies in memory.
constexpr TraceGuid processGuid{0xd0, 0xa8, 0x6f, 0x3d, 0x05, 0xfe, 0xd0, 0x11,
                                0x9d, 0xda, 0x00, 0xc0, 0x4f, 0xd7, 0xba, 0x7c};
constexpr std::string_view processGuidText = "{3d6fa8d0-fe05-11d0-9dda-00c04fd7ba7c}";

/// A payload, put together value by value.
class PayloadText {
public:
    template <typename Number>
    PayloadText& number(Number value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof(value));
        return *this;
    }
    PayloadText& text(std::string_view characters) {
        bytes_.append(characters);
        return *this;
    }
    /// The SID S-1-22-1-`last` behind `head` bytes that aren't all zero.
    PayloadText& sid(uint32_t last, size_t head);
    std::vector<uint8_t> bytes() const { return {bytes_.begin(), bytes_.end()}; }

private:
    std::string bytes_;
};

/// The payload of a process event, of the user ann's.
std::vector<uint8_t> processPayload(uint32_t pid, std::string_view image, uint32_t parent = 4);

/// An event as the test writes it down.
struct ScriptedEvent {
    uint8_t type = 1;
    uint16_t version = 2;
    int32_t seconds = 0; // since 1970
    std::vector<uint8_t> payload;
    TraceGuid guid = processGuid;
    std::function<void()> before{}; // it is handed over
    std::function<void()> behind{};

    /// Calls `use` with it in the form in which it is handed over.
    void handOver(const KernelTrace::EventCallback& use) const;
};

class ScriptedTrace : public KernelTrace {
public:
    uint32_t query(std::string_view name, TraceProperties& properties) override;
    uint32_t start(std::string_view name, const TraceProperties& properties) override;
    uint32_t stop(std::string_view name) override;
    TraceHandle open(std::string_view name, uint32_t& error) override;
    uint32_t process(const TraceHandle& trace, const EventCallback& onEvent, const BufferCallback& onBuffer) override;
    void close(TraceHandle& trace) override;
    uint32_t pointerSize() override { return pointerBytes; }
    std::string shortcomings() override { return lacking; }
    bool canStart(std::string& why) override {
        why = lacking;
        return true;
    }

    bool runs = false; // a session does
    bool isStoppable = true;
    uint32_t startResult = 0;
    uint32_t openError = 0;
    uint32_t processResult = 0;
    uint32_t pointerBytes = 4;
    uint64_t eventsLost = 0;
    uint64_t namesLost = 0;
    std::string lacking;
    std::deque<ScriptedEvent> events; // what the next reading hands over
    bool endsWhenRead = true;         // the session does, with the last of them
    std::function<void()> onWait;     // before each question whether to go on
    TraceProperties started;          // what the last start was given
    std::string calls;                // in their order
};

class ScriptedSchema : public EventSchema {
public:
    uint32_t connect(std::string_view nameSpace) override;
    bool classesBelow(std::string_view path, bool directOnly, std::span<const SchemaClass* const>& classes) override;

    /// Adds the class of a GUID, and one below it that describes starts and ends.
    SchemaClass& addEventClass(const std::string& path, std::string_view guid, SchemaQualifiers more = {});
    SchemaClass& addTypeClass(const std::string& base, const std::string& path, std::vector<int32_t> types);
    /// What a published system of version 5.1 says of process events.
    void describeProcesses();

    static SchemaProperty property(const std::string& name, uint32_t cimType, int32_t place,
                                   SchemaQualifiers more = {});

    uint32_t connection = SchemaConnection::connected;
    int connections = 0;
    int enumerations = 0;

private:
    std::map<std::string, std::vector<SchemaClass*>, std::less<>> below_;
    std::vector<std::unique_ptr<SchemaClass>> classes_;
    std::vector<const SchemaClass*> answer_;
};

} // namespace Velmor
