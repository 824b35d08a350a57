#pragma once
// Real cameras. Libcaer.cpp implements this where the build finds libcaer, NoLibcaer.cpp elsewhere.

#include <memory>

#include "davis/driver/Driver.h"

namespace davis::driver {

/// Opens the first camera of this kind that libcaer finds.
/// @return null when the build has no libcaer
/// @throws std::runtime_error with libcaer's text when it finds none
std::unique_ptr<Driver> openLibcaer(CameraKind kind);

} // namespace davis::driver
