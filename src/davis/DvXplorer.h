#pragma once
// A DVXplorer camera: the first virtual one that is free, else the first one that libcaer finds.

#include "davis/Camera.h"

namespace davis {

class DvXplorer : public detail::Camera {
public:
    /// Opens the camera, prints its description to standard output, and configures it.
    /// @throws std::runtime_error when there is none, saying what is missing, or when configuring it fails
    DvXplorer();
};

} // namespace davis

template <>
constexpr auto trovi::registerMemberFunctions<davis::DvXplorer>()
{
    return davis::detail::cameraFunctions<davis::DvXplorer>();
}

template <>
constexpr const char* trovi::registerDoc<davis::DvXplorer>()
{
    return "A DVXplorer event camera. Connect its source node, then start it; stop it before it is destroyed.";
}
