// How a `Process` comes out of a trace event.

#include "platform/Platform.h"
#include "process/Process.h"
#include "process/ProcessShared.h"
#include "process/events/EventDecoder.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <cstring>

namespace Velmor {

namespace {
constexpr int32_t windowsNt4 = 40;  // older systems have no event trace
constexpr int32_t windows2000 = 50; // its payloads have a layout of their own

/// Seconds since 1970 of a time stamp; what lies outside their range becomes the nearest that doesn't.
DateTime timeOf(uint64_t timeStamp) {
    constexpr uint64_t unitsOfSecond = 10000000;
    constexpr int64_t secondsBefore1970 = 11644473600;
    const auto seconds = static_cast<int64_t>(timeStamp / unitsOfSecond) - secondsBefore1970;
    return DateTime(static_cast<int32_t>(std::clamp<int64_t>(seconds, INT32_MIN, INT32_MAX)));
}

/// Takes a time stamp over, unless it lies in the future.
void takeTime(DateTime& time, const DateTime& stamp) {
    if (stamp <= DateTime())
        time = stamp;
}

bool isNews(std::string_view name) {
    return name != Process::lostText && !Process::isUnknownName(name);
}
} // namespace

Process::Process(const TraceEvent& event) : pid_(0) {
    ProcessShared& shared = processShared();
    if (shared.systemNumber == 0)
        shared.systemNumber = getOsVersion();
    if (shared.systemNumber < windowsNt4 || (event.type != TraceEventType::start && event.type != TraceEventType::end))
        return;
    state_ = event.type == TraceEventType::start ? ProcessState::started : ProcessState::ended;
    if (!event.payload.empty()) {
        if (shared.systemNumber <= windows2000)
            readFixedLayout(event.payload);
        else if (!readBySchema(event))
            return;
    }
    const DateTime stamp = timeOf(event.timeStamp);
    if (state_ == ProcessState::started) {
        lookNamesUp();
        takeTime(start_, stamp);
        if (shared.logger.passes(4))
            shared.logger.debug(4, "   Process: Got start time: %s", start_.toString(false, false));
        return;
    }
    takeTime(end_, stamp);
    if (shared.logger.passes(4))
        shared.logger.debug(4, "   Process: Got end time: %s", end_.toString(false, false));
}

/// False if the definitions can't be reached. A payload that they don't describe is passed over.
bool Process::readBySchema(const TraceEvent& event) {
    const Logger& log = processShared().logger;
    switch (EventDecoder::connectNamespace()) {
    case SchemaConnection::noLocator:
        log.debug(1, "Process: Failed CoCreateInstance.");
        return false;
    case SchemaConnection::noConnection:
        log.debug(1, "Process: Failed ConnectServer.");
        return false;
    default:
        log.debug(4, "Process: Successfully connected to namespace.");
    }
    const bool byPointer = (event.flags & useGuidPointer) != 0 && event.guidPointer;
    const SchemaClass* eventClass =
        EventDecoder::findEventClass(guidText(byPointer ? *event.guidPointer : event.guid), event.version);
    const SchemaClass* typeClass = eventClass ? EventDecoder::findEventTypeClass(*eventClass, event.type) : nullptr;
    EventDecoder::PropertyList list;
    std::vector<uint32_t> order;
    if (typeClass && EventDecoder::getProperties(*typeClass, list, order))
        walkProperties(event.payload, list, order);
    return true;
}

void Process::walkProperties(std::span<const uint8_t> payload, const std::vector<const SchemaProperty*>& list,
                             const std::vector<uint32_t>& order) {
    EventDecoder decoder;
    const uint8_t* position = payload.data();
    const uint8_t* const end = position + payload.size();
    for (const uint32_t index : order) {
        const SchemaProperty& property = *list[index];
        const auto remaining = static_cast<uint16_t>(std::min<ptrdiff_t>(end - position, UINT16_MAX));
        position = decoder.getPropertyValue(property, position, remaining);
        if (!position)
            return;
        const std::string_view name = EventDecoder::getPropertyName(property);
        if (name == "ProcessId") {
            pid_ = decoder.values().uint32Value;
        } else if (name == "ParentId") {
            parentPid_ = decoder.values().uint32Value;
        } else if (name == "UserSID") {
            setAccount(decoder.values().accountName, decoder.values().accountDomain);
        } else if (name == "ImageFileName") {
            executable_ = toLowerCopy(decoder.values().stringValue);
        }
    }
}

void Process::readFixedLayout(std::span<const uint8_t> payload) {
    constexpr size_t parentPlace = 4;
    constexpr size_t hasSidPlace = 8;
    constexpr size_t sidPlace = 16;
    const auto numberAt = [&](size_t place) {
        uint32_t number = 0;
        if (payload.size() >= place + sizeof(number))
            std::memcpy(&number, payload.data() + place, sizeof(number));
        return number;
    };
    pid_ = numberAt(0);
    parentPid_ = numberAt(parentPlace);
    if (numberAt(hasSidPlace) != 0 && payload.size() > sidPlace)
        getUserFromSid(sidText(payload.subspan(sidPlace)));
}

/// The names of a process that has just started, through the system.
void Process::lookNamesUp() {
    const Logger& log = processShared().logger;
    std::string work(lostText);
    getProcessInfo(parentPid_, work);
    if (isNews(work))
        parentExecutable_ = work;
    invalidate();
    work = lostText;
    getProcessInfo(pid_, work);
    if (isNews(work))
        executable_ = work;
    log.debug(4, "   Process: Got process \"%s\" (%i), parent \"%s\" (%i).", executable_, pid_, parentExecutable_,
              parentPid_);
    if (isUnknownName(user_)) {
        log.debug(4, "   Process: We didn't get user SID from the event. Trying to access the process directly.");
        getProcessInfo2(pid_, executable_, true);
    }
    log.debug(4, "   Process: Got user name \"%s\" (\"%s\").", user_, account_);
}

} // namespace Velmor
