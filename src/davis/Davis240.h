#pragma once
// A DAVIS camera: the first virtual one that is free, else the first one that libcaer finds.

#include "davis/Camera.h"

namespace davis {

class Davis240 : public detail::Camera {
public:
    /// Opens the camera, prints its description and its biases to standard output, and configures it.
    /// @throws std::runtime_error when there is none, saying what is missing, or when configuring it fails
    Davis240();
};

} // namespace davis

template <>
constexpr auto trovi::registerMemberFunctions<davis::Davis240>()
{
    return davis::detail::cameraFunctions<davis::Davis240>();
}

template <>
constexpr const char* trovi::registerDoc<davis::Davis240>()
{
    return "A DAVIS event camera. Connect its source node, then start it; stop it before it is destroyed.";
}
