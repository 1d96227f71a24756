#include "platform/linux/threads/LinuxThreads.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/threads/Checkpoint.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

extern "C" {
extern const char __executable_start;
extern const char etext;
}

namespace Velmor {

namespace {
constexpr long grace = 1000;     // milliseconds that a thread has to reach a checkpoint
constexpr long surrender = 3500; // milliseconds more to come to a harmless place
constexpr long pollStep = 5;     // milliseconds

enum class Order : uint8_t { none, stopAtCheckpoint, stopInHarmlessPlace };

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool mayLeave = false; // the sanitizers keep books on threads and what they hold
#else
constexpr bool mayLeave = true;
#endif

/// What a thread and the holders of its handle share.
struct ThreadControl {
    ThreadRoutine routine = nullptr;
    void* argument = nullptr;
    std::atomic<uint32_t> id{0};
    std::atomic<uint32_t> exitCode{stillActive};
    std::atomic<Order> order{Order::none};
    std::atomic<bool> standsStill{false}; // for good
    std::atomic<bool> hasLeft{false};     // and is to be joined
    pthread_t thread{};
    std::atomic<uint32_t> suspendCount{0};
    std::atomic<bool> suspended{false};
};

struct LinuxThread : NativeThread {
    std::shared_ptr<ThreadControl> control;
};

thread_local std::shared_ptr<ThreadControl> ownControl;
thread_local ThreadControl* current = nullptr; // of threads made here; plain, so that the signal handler may look
thread_local volatile int deferrals = 0;

int wakeSignal() {
    return SIGRTMIN + 3;
}

void pauseFor(long milliseconds) {
    const timespec span{milliseconds / 1000, milliseconds % 1000 * 1000000};
    nanosleep(&span, nullptr);
}

[[noreturn]] void standStill(ThreadControl& control) {
    control.standsStill.store(true);
    for (;;)
        pause();
}

/// Ends the thread without a line of the program or of the C library; whoever ended it joins it, which frees its stack.
[[noreturn]] void leave(ThreadControl& control) {
    control.hasLeft.store(true);
    control.standsStill.store(true);
    for (;;)
        syscall(SYS_exit, 0);
}

/// The end of a thread where it is: one that is in no critical section leaves nothing behind.
[[noreturn]] void giveUp(ThreadControl& control) {
    if (mayLeave && enteredSections == 0)
        leave(control);
    standStill(control);
}

/// Whether the interrupted thread is in the program's own code or in a wait in the kernel, where it holds no lock of
/// the C library. Other calls of the kernel are no such places: the allocator makes some with its lock held.
bool isHarmlessPlace(const ucontext_t& context) {
#if defined(__x86_64__)
    const auto counter = static_cast<uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
    const auto begin = reinterpret_cast<uintptr_t>(&__executable_start);
    const auto end = reinterpret_cast<uintptr_t>(&etext);
    if (counter >= begin && counter < end)
        return true;
    const auto* code = reinterpret_cast<const unsigned char*>(counter); // NOLINT(performance-no-int-to-ptr)
    const bool isBehindCall = code[-2] == 0x0f && code[-1] == 0x05;
    return isBehindCall && context.uc_mcontext.gregs[REG_RAX] == -EINTR;
#else
    (void)context;
    return true;
#endif
}

void obeyStop(ThreadControl& control, const ucontext_t& context) {
    const Order order = control.order.load();
    if (order == Order::stopInHarmlessPlace && deferrals == 0 && isHarmlessPlace(context))
        giveUp(control);
}

void onWakeSignal(int, siginfo_t*, void* context) {
    const int savedError = errno;
    if (ThreadControl* control = current) {
        obeyStop(*control, *static_cast<const ucontext_t*>(context));
        while (control->suspendCount.load() > 0) {
            control->suspended.store(true);
            pauseFor(1);
            obeyStop(*control, *static_cast<const ucontext_t*>(context));
        }
        control->suspended.store(false);
    }
    errno = savedError;
}

void installWakeSignal() {
    static const bool installed = [] {
        struct sigaction action {};
        action.sa_sigaction = onWakeSignal;
        action.sa_flags = SA_SIGINFO; // no restart: a waiting call must come back to its checkpoint
        sigemptyset(&action.sa_mask);
        return sigaction(wakeSignal(), &action, nullptr) == 0;
    }();
    (void)installed;
}

uint32_t kernelThreadId() {
    static thread_local const auto id = static_cast<uint32_t>(syscall(SYS_gettid));
    return id;
}

/// What an exception that leaves a routine makes of the thread's exit code, as the native runtime gives it.
constexpr uint32_t exceptionCode = 0xE06D7363;

uint32_t runRoutine(const ThreadControl& control) {
    try {
        return control.routine(control.argument);
    } catch (...) {
        return exceptionCode;
    }
}

void* runThread(void* given) {
    std::unique_ptr<std::shared_ptr<ThreadControl>> holder(static_cast<std::shared_ptr<ThreadControl>*>(given));
    ownControl = std::move(*holder);
    holder.reset();
    ThreadControl& control = *ownControl;
    current = &control;
    control.id.store(kernelThreadId());
    const uint32_t code = runRoutine(control);
    // From here on nothing of the thread's own is left to be stopped.
    current = nullptr;
    pthread_detach(pthread_self());
    control.exitCode.store(code);
    return nullptr;
}

ThreadControl* controlOf(const ThreadHandle& thread, uint32_t& error) {
    error = thread ? NativeError::success : NativeError::invalidHandle;
    return thread ? static_cast<const LinuxThread&>(*thread).control.get() : nullptr;
}

void wake(const ThreadControl& control) {
    syscall(SYS_tgkill, getpid(), control.id.load(), wakeSignal());
}

/// Waits for the thread to stand still or end, waking it again and again. False if it has done neither in that time.
bool waitForStandstill(const ThreadControl& control, long milliseconds) {
    for (long waited = 0; waited < milliseconds; waited += pollStep) {
        if (control.standsStill.load() || control.exitCode.load() != stillActive)
            return true;
        wake(control);
        pauseFor(pollStep);
    }
    return false;
}
} // namespace

thread_local volatile int enteredSections = 0;

void checkpoint() {
    ThreadControl* control = current;
    if (!control || deferrals != 0 || control->order.load(std::memory_order_acquire) == Order::none)
        return;
    giveUp(*control);
}

StopDeferral::StopDeferral() : count_(&deferrals) {
    deferrals = deferrals + 1;
}

StopDeferral::~StopDeferral() {
    if (count_ == &deferrals)
        deferrals = deferrals - 1;
}

ThreadHandle LinuxThreads::create(ThreadRoutine routine, void* argument, uint32_t& id, uint32_t& error) {
    installWakeSignal();
    auto control = std::make_shared<ThreadControl>();
    control->routine = routine;
    control->argument = argument;
    auto holder = std::make_unique<std::shared_ptr<ThreadControl>>(control);
    const int result = pthread_create(&control->thread, nullptr, runThread, holder.get());
    error = nativeError(result);
    if (result != 0)
        return nullptr;
    static_cast<void>(holder.release()); // the thread's now
    while (control->id.load() == 0)
        pauseFor(0);
    id = control->id.load();
    auto handle = std::make_unique<LinuxThread>();
    handle->control = std::move(control);
    return handle;
}

uint32_t LinuxThreads::currentId() {
    return kernelThreadId();
}

bool LinuxThreads::exitCode(const ThreadHandle& thread, uint32_t& code, uint32_t& error) {
    const ThreadControl* control = controlOf(thread, error);
    if (!control)
        return false;
    code = control->exitCode.load();
    return true;
}

bool LinuxThreads::suspend(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) {
    ThreadControl* control = controlOf(thread, error);
    if (!control)
        return false;
    previousCount = control->suspendCount.fetch_add(1);
    while (!control->suspended.load() && control->exitCode.load() == stillActive) {
        wake(*control);
        pauseFor(1);
    }
    return true;
}

bool LinuxThreads::resume(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) {
    ThreadControl* control = controlOf(thread, error);
    if (!control)
        return false;
    previousCount = control->suspendCount.load();
    while (previousCount > 0 && !control->suspendCount.compare_exchange_weak(previousCount, previousCount - 1)) {
    }
    // A thread that is on must be seen to be so by a hold that follows at once.
    while (previousCount == 1 && control->suspended.load() && control->exitCode.load() == stillActive &&
           control->suspendCount.load() == 0)
        pauseFor(0);
    return true;
}

bool LinuxThreads::terminate(const ThreadHandle& thread, uint32_t code, uint32_t& error) {
    ThreadControl* control = controlOf(thread, error);
    if (!control)
        return false;
    if (control == current) {
        control->exitCode.store(code);
        standStill(*control);
    }
    struct Stage {
        Order order;
        long time;
    };
    for (const auto& [order, time] :
         {Stage{Order::stopAtCheckpoint, grace}, Stage{Order::stopInHarmlessPlace, surrender}}) {
        control->order.store(order, std::memory_order_release);
        if (!waitForStandstill(*control, time))
            continue;
        uint32_t running = stillActive;
        control->exitCode.compare_exchange_strong(running, code); // one that ended by itself keeps its own
        if (control->hasLeft.exchange(false))
            pthread_join(control->thread, nullptr);
        return true;
    }
    error = NativeError::accessDenied;
    return false;
}

} // namespace Velmor
