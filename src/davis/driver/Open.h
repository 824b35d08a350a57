#pragma once
// Which camera a camera class gets: decided here, at run time.

#include <memory>

#include "davis/driver/Driver.h"

namespace davis::driver {

/// Opens a camera of this kind: the first free virtual one while any is plugged in, else the first real one that
/// libcaer finds, if the build has libcaer.
/// @throws std::runtime_error when there is none; the text says what is missing and begins with libcaer's own, if any.
///         While virtual cameras of the kind are plugged in and all of them are open, no real one is looked for.
std::unique_ptr<Driver> open(CameraKind kind);

} // namespace davis::driver
