#include "device/DeviceController.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "device/DeviceInterfaceFactory.h"
#include "device/Drivers.h"
#include "device/Log.h"
#include "trovi/Dispatcher.h"
#include "trovi/Store.h"

namespace device {
namespace {

const Log& logger()
{
    static const Log log("device::DeviceController");
    return log;
}

// An unknown role means broken memory. Static objects are not destroyed: one of them may wait for this very thread.
[[noreturn]] void endProcess(DriverReferenceType role)
{
    logger().fatal("a device is recorded under the unknown role " + std::to_string(static_cast<int>(role)));
    std::fflush(nullptr);
    std::_Exit(-1);
}

} // namespace

DeviceController::DeviceController(trovi::Store& nodeStore) : store(nodeStore) {}

DeviceController::~DeviceController()
{
    for (const auto& [info, element] : opened)
        store.erase(element.store_ref);
}

void DeviceController::registerDiscoverer(const std::string& name,
                                          std::shared_ptr<DeviceDiscovererInterface> discoverer)
{
    if (getDiscoverers().contains(name))
        return;
    logger().debug("registerDiscoverer registering for " + name);
    getDiscoverers().emplace(name, std::move(discoverer));
}

std::vector<DeviceInfo> DeviceController::getUnopenedDevices()
{
    logger().debug("getUnopenedDevices");
    std::vector<DeviceInfo> all;
    for (const auto& [name, discoverer] : getDiscoverers()) {
        const auto found = discoverer->getDevices();
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

std::vector<OpenedDevice> DeviceController::getOpenedDevices()
{
    logger().debug("getOpenedDevices");
    std::vector<OpenedDevice> all;
    for (const auto& [info, element] : opened)
        all.emplace_back(info, element.store_ref, element.reference_type);
    return all;
}

trovi::StoreRef DeviceController::openDeviceAPI(const DeviceInfo& info)
{
    logger().debug("openDeviceAPI");
    const auto entry = find(info);
    if (entry == opened.end())
        return createDeviceAPI(info);

    MapElement& element = entry->second;
    switch (element.reference_type) {
    case DriverReferenceType::DeviceAPI:
        logger().debug("openDeviceAPI retrieve device API");
        return element.store_ref;
    case DriverReferenceType::DeviceModel: {
        logger().debug("openDeviceAPI retrieve device API from model and remove model from store");
        const auto model = extract<DeviceModel>(element);
        auto api = model->releaseDeviceAPI();
        element.reference_type = DriverReferenceType::DeviceAPI;
        element.store_ref = store.insert(info.device_type_name, std::move(api));
        return element.store_ref;
    }
    case DriverReferenceType::Board:
        logger().debug("openDeviceAPI close board");
        closeDevice(info);
        return createDeviceAPI(info);
    }
    endProcess(element.reference_type);
}

trovi::StoreRef DeviceController::openDeviceModel(const DeviceInfo& info)
{
    logger().debug("openDeviceModel");
    std::unique_ptr<DeviceAPI> api;
    if (const auto entry = find(info); entry != opened.end()) {
        switch (entry->second.reference_type) {
        case DriverReferenceType::DeviceModel:
            logger().debug("openDeviceModel retrieve device Model");
            return entry->second.store_ref;
        case DriverReferenceType::DeviceAPI:
            logger().debug("openDeviceModel retrieve device API");
            api = extract<DeviceAPI>(entry->second);
            break;
        case DriverReferenceType::Board:
            logger().debug("openDeviceModel close board");
            closeDevice(info);
            break;
        default:
            endProcess(entry->second.reference_type);
        }
    }
    auto& factory = DeviceInterfaceFactory::getInstance();
    if (!api) {
        logger().debug("openDeviceModel create device API");
        api = factory.getDeviceAPI(info);
    }
    logger().debug("openDeviceModel create Model");
    auto model = factory.getDeviceModel(std::move(api));
    return record(info, {store.insert(info.device_type_name, std::move(model)), DriverReferenceType::DeviceModel});
}

trovi::StoreRef DeviceController::openBoard(const DeviceInfo& info)
{
    logger().debug("openBoard");
    if (const auto entry = find(info); entry != opened.end()) {
        switch (entry->second.reference_type) {
        case DriverReferenceType::Board:
            logger().debug("openBoard retrieve Board");
            return entry->second.store_ref;
        case DriverReferenceType::DeviceAPI:
            logger().debug("openBoard close device API");
            break;
        case DriverReferenceType::DeviceModel:
            logger().debug("openBoard close device model");
            break;
        default:
            endProcess(entry->second.reference_type);
        }
        closeDevice(info);
    }
    return createBoard(info);
}

void DeviceController::closeDevice(const DeviceInfo& info)
{
    const auto entry = find(info);
    if (entry == opened.end())
        return;
    store.erase(entry->second.store_ref);
    opened.erase(entry);
}

trovi::StoreRef DeviceController::createDeviceAPI(const DeviceInfo& info)
{
    logger().debug("getDeviceAPI create API");
    auto api = DeviceInterfaceFactory::getInstance().getDeviceAPI(info);
    return record(info, {store.insert(info.device_type_name, std::move(api)), DriverReferenceType::DeviceAPI});
}

trovi::StoreRef DeviceController::createBoard(const DeviceInfo& info)
{
    logger().debug("openBoard create Board");
    auto board = DeviceInterfaceFactory::getInstance().getBoard(info);
    return record(info, {store.insert(info.device_type_name, std::move(board)), DriverReferenceType::Board});
}

DeviceController::OpenMap::iterator DeviceController::find(const DeviceInfo& info)
{
    return std::find_if(opened.begin(), opened.end(), [&](const auto& entry) { return entry.first == info; });
}

trovi::StoreRef DeviceController::record(const DeviceInfo& info, MapElement element)
{
    if (const auto entry = find(info); entry != opened.end()) {
        entry->second = element;
        return element.store_ref;
    }
    // Made in a map of its own first: its place then follows from the address that the key keeps.
    OpenMap single;
    single.emplace(info, element);
    opened.insert(single.extract(single.begin()));
    return element.store_ref;
}

/// Takes the driver out of the store.
template <class Role>
std::unique_ptr<Role> DeviceController::extract(const MapElement& element)
{
    const auto holder = store.extract(element.store_ref);
    auto* const typed = dynamic_cast<trovi::StoreHolder<Role>*>(holder.get());
    if (typed == nullptr)
        throw std::runtime_error("The device's driver is no longer in the store; close the device, then open it again");
    return typed->release();
}

} // namespace device
