#include "fxtree/Fx3Boot.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace fxtree {
namespace {

constexpr int failed = -1;
constexpr int ramWriteFailed = -3;
constexpr int checksumWrong = -4;

} // namespace

int fx3RamWrite(usb::LibUSBDevice& device, std::span<const std::uint8_t> bytes, std::uint32_t address)
{
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t size = std::min(bytes.size() - start, writeRam.maxBytes);
        std::cout << "start = " << start << "end = " << start + size << " "
                  << "size = " << size << std::endl;
        const int result = device.controlWrite(writeRam.setup(address), bytes.subspan(start, size), writeRam.timeoutMs);
        std::cout << "r = " << result << std::endl;
        if (result != static_cast<int>(size)) {
            std::cerr << "Error: Vendor write to FX3 RAM failed\n";
            return failed;
        }
        start += size;
        address += static_cast<std::uint32_t>(size);
    }
    return 0;
}

Fx3Boot::Fx3Boot(std::unique_ptr<usb::LibUSBDevice> bootDevice) : device(std::move(bootDevice)) {}

int Fx3Boot::configure(const std::string& path)
{
    if (loaded)
        throw std::runtime_error("Error: Device has already been programmed");
    const std::vector<std::uint8_t> image = util::readFirmwareImage(path);
    const FirmwareRecords records = parseFirmware(image, path); // all of it, before anything is sent
    for (const FirmwareRecord& record : records.data) {
        if (!device || fx3RamWrite(*device, record.content, record.address) != 0) {
            std::cerr << "Error: Failed to download data to FX3 RAM\n";
            return ramWriteFailed;
        }
    }
    if (records.end) {
        if (records.sum() != records.end->checksum) {
            std::cerr << "Error: Checksum error in firmware binary\n";
            return checksumWrong;
        }
        // An FX3 that has jumped may be gone before it could answer, so no result is a failure.
        const std::vector<std::uint8_t> nothing;
        const int result =
            device ? device->controlWrite(jump.setup(records.end->entry), nothing, jump.timeoutMs) : failed;
        if (result != 0)
            std::cout << "Info: Ignored error in control transfer: " << result << std::endl;
    }
    loaded = true;
    return 0;
}

} // namespace fxtree
