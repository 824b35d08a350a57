#include "Interposed.h"

#include <dlfcn.h>
#include <mutex>
#include <thread>
#include <utility>

#include <libusb-1.0/libusb.h>

namespace interposed {

std::optional<int> initFails, listFails;
thread_local bool cancelComesTooLate = false;
std::atomic<bool> freeingIsSlow = false;

namespace {

std::atomic<int> contexts = 0, freedLate = 0;
thread_local bool handlesEvents = false;
std::mutex mutex;
std::set<unsigned> timeouts;

enum Gate { off, armed, reached };
std::atomic<Gate> gate = off;

void set(Gate value)
{
    gate = value;
    gate.notify_all();
}

} // namespace

int openContexts() { return contexts; }
int lateFrees() { return freedLate; }
std::set<unsigned> takeTimeouts()
{
    const std::lock_guard lock(mutex);
    return std::exchange(timeouts, {});
}
void holdEventThread() { gate = armed; }
void waitForHeldThread() { gate.wait(armed); }

} // namespace interposed

using namespace interposed;

// `real` is libusb's own function.
#define INTERPOSED(Result, name, ...)                                                            \
    static auto* const real_##name = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name)); \
    extern "C" __attribute__((visibility("default"))) Result name(__VA_ARGS__)

INTERPOSED(int, libusb_init, libusb_context** context)
{
    const int code = initFails ? *initFails : real_libusb_init(context);
    contexts += code == 0;
    return code;
}

INTERPOSED(void, libusb_exit, libusb_context* context)
{
    --contexts;
    real_libusb_exit(context);
}

INTERPOSED(ssize_t, libusb_get_device_list, libusb_context* context, libusb_device*** list)
{
    return listFails ? *listFails : real_libusb_get_device_list(context, list);
}

INTERPOSED(void, libusb_close, libusb_device_handle* handle)
{
    real_libusb_close(handle);
    if (gate == reached)
        set(off);
}

INTERPOSED(int, libusb_handle_events, libusb_context* context)
{
    if (Gate expected = armed; gate.compare_exchange_strong(expected, reached)) {
        gate.notify_all();
        gate.wait(reached);
    }
    handlesEvents = true;
    return real_libusb_handle_events(context);
}

INTERPOSED(int, libusb_submit_transfer, libusb_transfer* transfer)
{
    {
        const std::lock_guard lock(mutex);
        timeouts.insert(transfer->timeout);
    }
    return real_libusb_submit_transfer(transfer);
}

INTERPOSED(int, libusb_cancel_transfer, libusb_transfer* transfer)
{
    return cancelComesTooLate ? LIBUSB_ERROR_NOT_FOUND : real_libusb_cancel_transfer(transfer);
}

INTERPOSED(void, libusb_free_transfer, libusb_transfer* transfer)
{
    for (int turn = 0; freeingIsSlow && !handlesEvents && contexts > 0 && turn < 10'000; ++turn)
        std::this_thread::yield();
    freedLate += contexts == 0;
    real_libusb_free_transfer(transfer);
}
