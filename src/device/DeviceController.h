#pragma once
// Opens devices into a store, and changes their role on request.
//
// A device is in one role at a time. Between API and model its hardware object stays alive; to and from a board the
// device is closed and built anew. The driver is in the store under its `device_type_name`. Each change of role gives
// it a new reference, and the old one becomes invalid.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "device/DeviceDiscoverer.h"
#include "device/DeviceInfo.h"
#include "device/OpenedDevice.h"
#include "trovi/Reflect.h"
#include "trovi/StoreRef.h"

namespace trovi {
class Store;
}

namespace device {

/// Failures: the open... functions pass on what DeviceInterfaceFactory and trovi::Store::insert throw. If an open API
/// is to become a model and the model can't be built, the API is destroyed and the device stays recorded under its dead
/// reference until closeDevice().
/// Threads: thread-bound, to the thread that serves the store's messages. No lock.
class DeviceController {
public:
    struct MapElement {
        trovi::StoreRef store_ref;
        DriverReferenceType reference_type = DriverReferenceType::DeviceAPI;
    };

    /// @param store  must outlive the controller, or be what destroys it
    explicit DeviceController(trovi::Store& store);
    DeviceController(const DeviceController&) = delete;
    DeviceController& operator=(const DeviceController&) = delete;

    /// Erases every device that it opened from the store, in map order.
    virtual ~DeviceController();

    /// What all discoverers find. Devices that are open are listed too.
    std::vector<DeviceInfo> getUnopenedDevices();
    std::vector<OpenedDevice> getOpenedDevices();

    /// The three open functions return the device's present reference when it is in that role already.
    trovi::StoreRef openDeviceAPI(const DeviceInfo& info);
    trovi::StoreRef openDeviceModel(const DeviceInfo& info);
    trovi::StoreRef openBoard(const DeviceInfo& info);

    /// Destroys the device's driver. Does nothing for a device that is not open.
    void closeDevice(const DeviceInfo& info);

    /// Adds a source for getUnopenedDevices(). A name in use keeps its first discoverer.
    static void registerDiscoverer(const std::string& name, std::shared_ptr<DeviceDiscovererInterface> discoverer);

protected:
    // Ordered by the addresses of its keys, since that is how two infos compare. A search by that order would miss
    // keys, so use find() and record().
    using OpenMap = std::map<DeviceInfo, MapElement>;
    OpenMap opened;

private:
    OpenMap::iterator find(const DeviceInfo& info);
    trovi::StoreRef record(const DeviceInfo& info, MapElement element);
    template <class Role>
    std::unique_ptr<Role> extract(const MapElement& element);
    trovi::StoreRef createDeviceAPI(const DeviceInfo& info);
    trovi::StoreRef createBoard(const DeviceInfo& info);

    trovi::Store& store;
};

} // namespace device

template <>
constexpr auto trovi::registerMemberFunctions<device::DeviceController>()
{
    using device::DeviceController;
    return functions(
        blockingFunction("get_unopened_devices", &DeviceController::getUnopenedDevices,
                         "What all discoverers find; devices that are open are listed too."),
        function("get_opened_devices", &DeviceController::getOpenedDevices,
                 "The devices that this controller holds open, in no useful order."),
        blockingFunction("open_device_api", &DeviceController::openDeviceAPI,
                         "Opens the device for raw access and returns where it is in the store. An open model gives "
                         "its device back, an open board is closed first. Raises \"API builder missing for: \" and "
                         "the type's name when no driver is known for device_type_name.",
                         "info"),
        blockingFunction("open_device_model", &DeviceController::openDeviceModel,
                         "Opens the device with a model of its chip and returns where it is in the store. An open "
                         "device goes into the model, an open board is closed first. Raises \"Model builder missing "
                         "for: \" and the type's name when there is no model.",
                         "info"),
        blockingFunction("open_board", &DeviceController::openBoard,
                         "Opens the device as a whole board and returns where it is in the store; it is closed first "
                         "when open in another role. Raises \"Board builder missing for: \" and the type's name when "
                         "there is no such board.",
                         "info"),
        blockingFunction("close_device", &DeviceController::closeDevice,
                         "Closes the device and takes it out of the store; does nothing when it is not open.", "info"));
}

template <>
constexpr const char* trovi::registerDoc<device::DeviceController>()
{
    return "Opens devices into the store and moves them between the roles of API, model and board.";
}
