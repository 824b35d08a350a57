#pragma once
// The driver of a virtual camera.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "davis/driver/Driver.h"
#include "davis/driver/PluggedCamera.h"

namespace davis::driver {

class VirtualDriver final : public Driver {
public:
    /// @param camera  open; the destructor closes it
    explicit VirtualDriver(std::shared_ptr<PluggedCamera> camera);
    ~VirtualDriver() override;

    DriverInfo info() const override;

    /// All settings go back to 0, what they are at power-on.
    void sendDefaultConfig() override;
    void configure(Setting setting, std::uint32_t value) override;
    /// What was last set; 0 for what never was.
    std::uint32_t configuration(Setting setting) const override;
    void setBias(std::uint8_t address, const CoarseFineBias& bias) override;
    CoarseFineBias bias(std::uint8_t address) const override;

    void start(void (*shutdown)(void* self), void* self) override;
    void stop() override;
    std::vector<event::DvsEvent> get() override;
    void setBacklogQuery(const std::function<std::size_t()>& waiting) override;

private:
    void require(bool good, const std::string& failure) const;
    void requireTransfer(Setting setting, const std::string& failure) const;
    std::uint32_t valueOf(Setting setting) const;

    const std::shared_ptr<PluggedCamera> camera;
    const std::string name;
    std::function<std::size_t()> backlog;
    std::map<std::pair<std::int8_t, std::uint8_t>, std::uint32_t> settings; // by module and parameter
};

} // namespace davis::driver
