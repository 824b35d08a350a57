#include "python/VornaNode.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "davis/Davis240.h"
#include "davis/DvXplorer.h"
#include "device/DeviceController.h"
#include "usb/DeviceList.h"
#include "usb/LibUSBDevice.h"

namespace {

constexpr std::uint64_t pollIntervalMs = 100;

[[noreturn]] void throwNoDriver(const char* name)
{
    throw std::runtime_error(std::string("The board was found, but this version of vorna has no driver for ") + name +
                             " yet.");
}

} // namespace

VornaNode::VornaNode(const std::string& senderEndpoint, const std::string& receiverEndpoint, std::uint64_t id)
    : TroviNode(senderEndpoint, receiverEndpoint, id, pollIntervalMs)
{
    store().insert("DeviceController", std::make_unique<device::DeviceController>(store()));
}

VornaNode::~VornaNode() { stop(); }

void VornaNode::stop()
{
    if (!channel().isOfThisProcess())
        return; // forked off: node and devices are the parent's
    closed = true;
    TroviNode::stop();
}

void VornaNode::stopObjects()
{
    const util::Lock lock(devicesMutex);
    for (const auto& stopDevice : deviceStops)
        stopDevice();
    deviceStops.clear();
}

std::pair<std::uint16_t, std::uint16_t> VornaNode::getOmbrelVidAndPid() const
{
    requireOpen();
    return {static_cast<std::uint16_t>(usb::VendorId::OpalKelly),
            static_cast<std::uint16_t>(usb::ProductId::OpalKellyFpga)};
}

void VornaNode::openOmbrelDevBoard(int bus, int address)
{
    requireOpen();
    const usb::LibUSBDevice found(static_cast<std::uint16_t>(bus), static_cast<std::uint16_t>(address));
    throwNoDriver("OmbrelDevBoard");
}

void VornaNode::openTesselTestboard(int bus, int address)
{
    requireOpen();
    const usb::LibUSBDevice found(static_cast<std::uint16_t>(bus), static_cast<std::uint16_t>(address));
    throwNoDriver("TesselTestBoard");
}

void VornaNode::openBoard(const char* name)
{
    requireOpen();
    const auto found = usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::DevKit);
    if (found.size() != 1) {
        std::fputs("Reopening failed to find device\n", stdout);
        std::fflush(stdout);
        return;
    }
    throwNoDriver(name);
}

void VornaNode::openDevKit() { openBoard("TesselDevKit"); }
void VornaNode::openRavikDevKit() { openBoard("RavikDevKit"); }

template <class Camera>
void VornaNode::openCamera(const char* name)
{
    requireOpen();
    openWithStop(name, std::make_unique<Camera>(), [](Camera& camera) { camera.stopIfRunning(); });
}

void VornaNode::openDavis() { openCamera<davis::Davis240>("Davis240"); }
void VornaNode::openDvXplorer() { openCamera<davis::DvXplorer>("DvXplorer"); }

void VornaNode::exposeRootNode()
{
    requireOpen();
    store().insertBorrowed("VornaNode", *this);
}

void VornaNode::requireOpen() const
{
    if (closed)
        throw std::runtime_error("This VornaNode is closed; make a new one.");
}
