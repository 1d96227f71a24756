#include "platform/linux/trace/LinuxKernelTrace.h"

#include "platform/Errors.h"
#include "platform/linux/threads/Checkpoint.h"
#include "platform/linux/trace/TracePayload.h"
#include "platform/linux/trace/TraceSession.h"

namespace Velmor {

namespace {
constexpr int waitStep = 200; // milliseconds between two questions whether to go on
constexpr std::string_view lostName = "<<lost>>";

struct LinuxTrace : NativeTrace {
    std::shared_ptr<TraceSession> session;
};

void handOver(const TraceQueue::Item& item, std::vector<uint8_t>& payload, const KernelTrace::EventCallback& onEvent) {
    const TracedProcess& process = *item.process;
    TracePayload::write(payload, process.pid, process.parentPid, process.owner,
                        process.executable.empty() ? lostName : process.executable);
    TraceEvent event;
    event.type = item.isStart ? TraceEventType::start : TraceEventType::end;
    event.version = TracePayload::version;
    event.timeStamp = item.timeStamp;
    event.guid = TracePayload::guid;
    event.processId = process.pid;
    event.payload = payload;
    onEvent(event);
}
} // namespace

LinuxKernelTrace::LinuxKernelTrace(LinuxProcesses& processes, Sources sources)
    : processes_(processes), sources_(sources) {}

LinuxKernelTrace::~LinuxKernelTrace() = default;

std::shared_ptr<TraceSession> LinuxKernelTrace::find(std::string_view name) {
    const ServiceLock lock(mutex_);
    return name == name_ ? session_ : nullptr;
}

uint32_t LinuxKernelTrace::query(std::string_view name, TraceProperties& properties) {
    checkpoint();
    const auto session = find(name);
    if (!session)
        return NativeError::instanceNotFound;
    properties.eventsLost = session->lost();
    properties.namesLost = session->namesLost();
    return NativeError::success;
}

uint32_t LinuxKernelTrace::start(std::string_view name, const TraceProperties&) {
    checkpoint();
    const ServiceLock lock(mutex_);
    if (session_)
        return NativeError::alreadyExists;
    shortcomings_.clear();
    auto session = std::make_shared<TraceSession>(processes_, sources_);
    if (!session->start(shortcomings_))
        return NativeError::accessDenied;
    name_ = name;
    session_ = std::move(session);
    return NativeError::success;
}

uint32_t LinuxKernelTrace::stop(std::string_view name) {
    checkpoint();
    const ServiceLock lock(mutex_);
    if (!session_ || name != name_)
        return NativeError::instanceNotFound;
    session_->stop();
    session_.reset();
    return NativeError::success;
}

TraceHandle LinuxKernelTrace::open(std::string_view name, uint32_t& error) {
    checkpoint();
    auto trace = std::make_unique<LinuxTrace>();
    trace->session = find(name);
    error = trace->session ? NativeError::success : NativeError::instanceNotFound;
    if (!trace->session)
        return nullptr;
    return trace;
}

uint32_t LinuxKernelTrace::process(const TraceHandle& trace, const EventCallback& onEvent,
                                   const BufferCallback& onBuffer) {
    TraceSession& session = *static_cast<LinuxTrace&>(*trace).session;
    std::vector<uint8_t> payload;
    while (onBuffer()) {
        checkpoint();
        const bool hasEnded = session.hasEnded(); // asked first: its last events may come in between
        if (!takeNext(session, payload, onEvent) && !session.queue().await(hasEnded ? 0 : waitStep) && hasEnded)
            return NativeError::success;
    }
    return NativeError::cancelled;
}

/// False if nothing waits.
bool LinuxKernelTrace::takeNext(TraceSession& session, std::vector<uint8_t>& payload, const EventCallback& onEvent) {
    const StopDeferral deferral; // an event that was begun with is finished with
    TraceQueue::Item item{};
    if (!session.queue().front(item))
        return false;
    if (item.isStart)
        processes_.traced().enter(item.process);
    handOver(item, payload, onEvent);
    if (!item.isStart)
        processes_.traced().remove(item.process);
    session.queue().pop();
    return true;
}

void LinuxKernelTrace::close(TraceHandle& trace) {
    trace.reset();
}

uint32_t LinuxKernelTrace::pointerSize() {
    return TracePayload::pointerSize;
}

bool LinuxKernelTrace::canStart(std::string& shortcomings) {
    checkpoint();
    TraceSession session(processes_, sources_);
    return session.openSources(shortcomings);
}

std::string LinuxKernelTrace::shortcomings() {
    const ServiceLock lock(mutex_);
    return shortcomings_;
}

} // namespace Velmor
