#pragma once
// The root object of a server process: it owns the store of live devices and opens devices into it.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "trovi/Reflect.h"
#include "trovi/TroviNode.h"
#include "util/Mutex.h"

/// Binds two endpoints and serves its store, in which it puts a device::DeviceController, "DeviceController".
/// Threads: the base's receiver and dispatcher. Called remotely, the functions run on the dispatcher under the store's
/// mutex; called locally, on the caller's thread. Thread-safe.
class VornaNode : public trovi::TroviNode<trovi::Puller, trovi::Publisher> {
public:
    /// @param senderEndpoint    where answers and notifications are published; a client's requests endpoint
    /// @param receiverEndpoint  where requests arrive; a client's sender endpoint
    /// @param id  the node's and its store's id; no id of a deployment may be a prefix, in decimal text, of another
    /// @throws zmq::error_t when an endpoint is in use or malformed
    VornaNode(const std::string& senderEndpoint, const std::string& receiverEndpoint, std::uint64_t id);
    ~VornaNode() override;

    /// As TroviNode::stop(): afterwards the endpoints are free, and the devices are stopped and closed. All functions
    /// below then throw.
    void stop();

    /// @throws std::runtime_error "This VornaNode is closed; make a new one." after stop()
    void requireOpen() const;

    /// Vendor and product id of the board of the mixed-signal chip.
    std::pair<std::uint16_t, std::uint16_t> getOmbrelVidAndPid() const;

    // Each opens one kind of device under its fixed name in the store.
    // @throws std::runtime_error as requireOpen(), when the name is taken, and what the device's driver raises
    void openOmbrelDevBoard(int bus, int address);
    void openTesselTestboard(int bus, int address);
    void openDevKit();
    void openRavikDevKit();
    void openDavis();
    void openDvXplorer();

    /// Puts this node itself in its store, as "VornaNode", so that clients can call the open functions by proxy.
    void exposeRootNode();

    /// Puts a device that runs a thread of its own in the store; stop() calls its stop(). Include the device's class.
    /// @throws std::runtime_error as requireOpen(), or when the name is taken; the device is destroyed then
    template <class Device>
    void openDevice(const std::string& name, std::unique_ptr<Device> device)
    {
        openWithStop(name, std::move(device), [](Device& opened) { opened.stop(); });
    }

private:
    // The store just destroys its objects, and a device that runs a thread must be stopped before.
    void stopObjects() override;
    template <class Device, class Stop>
    void openWithStop(const std::string& name, std::unique_ptr<Device> device, Stop stop)
    {
        requireOpen();
        Device* const opened = device.get();
        store().insert(name, std::move(device));
        const util::Lock lock(devicesMutex);
        deviceStops.emplace_back([opened, stop] { stop(*opened); });
    }
    template <class Camera>
    void openCamera(const char* name);
    void openBoard(const char* name);

    std::atomic<bool> closed = false;
    util::Mutex devicesMutex;
    std::vector<std::function<void()>> deviceStops VORNA_GUARDED_BY(devicesMutex);
};

// The order is the functions' numbers on the wire.
template <>
constexpr auto trovi::registerMemberFunctions<VornaNode>()
{
    return functions(
        function("get_ombrel_vid_and_pid", &VornaNode::getOmbrelVidAndPid,
                 "USB vendor and product id of the board of the mixed-signal chip."),
        blockingFunction("open_ombrel_dev_board", &VornaNode::openOmbrelDevBoard,
                         "Opens the board at this USB bus and address as \"OmbrelDevBoard\".", "bus, address"),
        blockingFunction("open_tessel_testboard", &VornaNode::openTesselTestboard,
                         "Opens the board at this USB bus and address as \"TesselTestBoard\".", "bus, address"),
        blockingFunction(
            "open_dev_kit", &VornaNode::openDevKit,
            "Opens the one dev kit on USB as \"TesselDevKit\". Without exactly one it prints a line and leaves "
            "the store as it was."),
        blockingFunction(
            "open_ravik_dev_kit", &VornaNode::openRavikDevKit,
            "Opens the one dev kit on USB as \"RavikDevKit\". Without exactly one it prints a line and leaves "
            "the store as it was."),
        blockingFunction("open_davis", &VornaNode::openDavis, "Opens the first DAVIS camera as \"Davis240\"."),
        blockingFunction("open_dvxplorer", &VornaNode::openDvXplorer,
                         "Opens the first DVXplorer camera as \"DvXplorer\"."),
        blockingFunction("expose_root_node", &VornaNode::exposeRootNode,
                         "Puts this node in its own store as \"VornaNode\", so that clients can call it by proxy."));
}

template <>
constexpr const char* trovi::registerDoc<VornaNode>()
{
    return "Server node: owns the store of live devices of this process and opens devices into it.\n\n"
           "A client's endpoints are this node's, crossed: what the server sends on is what the client receives on.";
}
