#pragma once
// A DAVIS camera: the first one that libcaer finds, or the first virtual one.

#include "davis/Camera.h"

namespace davis {

class Davis240 : public detail::Camera {
public:
    /// Opens the camera, prints its description and its biases to standard output, and configures it.
    /// @throws std::runtime_error with libcaer's text when there is none, or when it does not take its configuration
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
    return "A DAVIS event camera. Connect its source node, then start it; stop it before it goes.";
}
