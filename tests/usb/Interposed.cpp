#include "Interposed.h"

#include <condition_variable>
#include <dlfcn.h>
#include <mutex>
#include <thread>

#include <libusb-1.0/libusb.h>

namespace interposed {

std::optional<int> initFails;
std::optional<int> listFails;
thread_local bool cancelComesTooLate = false;
std::atomic<bool> freeingIsSlow = false;

namespace {

std::atomic<int> contexts = 0;
std::atomic<int> freedLate = 0;
thread_local bool handlesEvents = false;

enum class Gate { off, armed, reached, open };
std::mutex mutex;
std::condition_variable changed;
Gate gate = Gate::off;

void set(Gate value)
{
    const std::lock_guard lock(mutex);
    gate = value;
    changed.notify_all();
}

void passGate()
{
    std::unique_lock lock(mutex);
    if (gate != Gate::armed)
        return;
    gate = Gate::reached;
    changed.notify_all();
    changed.wait(lock, [] { return gate != Gate::reached; });
}

template <class Function>
Function* next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

int openContexts() { return contexts; }
int lateFrees() { return freedLate; }

EventThreadGate::EventThreadGate() { set(Gate::armed); }
EventThreadGate::~EventThreadGate() { set(Gate::off); }

void EventThreadGate::waitUntilReached()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return gate == Gate::reached; });
}

} // namespace interposed

using namespace interposed;

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED int libusb_init(libusb_context** context)
{
    static auto* const real = next(&libusb_init, "libusb_init");
    if (initFails)
        return *initFails;
    const int code = real(context);
    contexts += code == 0;
    return code;
}

INTERPOSED void libusb_exit(libusb_context* context)
{
    static auto* const real = next(&libusb_exit, "libusb_exit");
    --contexts;
    real(context);
}

INTERPOSED ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    static auto* const real = next(&libusb_get_device_list, "libusb_get_device_list");
    return listFails ? *listFails : real(context, list);
}

INTERPOSED void libusb_close(libusb_device_handle* handle)
{
    static auto* const real = next(&libusb_close, "libusb_close");
    real(handle);
    const std::lock_guard lock(mutex);
    if (gate == Gate::reached) {
        gate = Gate::open;
        changed.notify_all();
    }
}

INTERPOSED int libusb_handle_events(libusb_context* context)
{
    static auto* const real = next(&libusb_handle_events, "libusb_handle_events");
    passGate();
    handlesEvents = true;
    return real(context);
}

INTERPOSED int libusb_cancel_transfer(libusb_transfer* transfer)
{
    static auto* const real = next(&libusb_cancel_transfer, "libusb_cancel_transfer");
    return cancelComesTooLate ? LIBUSB_ERROR_NOT_FOUND : real(transfer);
}

INTERPOSED void libusb_free_transfer(libusb_transfer* transfer)
{
    static auto* const real = next(&libusb_free_transfer, "libusb_free_transfer");
    for (int turn = 0; freeingIsSlow && !handlesEvents && contexts > 0 && turn < 10'000; ++turn)
        std::this_thread::yield();
    freedLate += contexts == 0;
    real(transfer);
}
