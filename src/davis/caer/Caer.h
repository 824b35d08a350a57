#pragma once
// The one place where libcaer comes in: the library itself where the build found it, else our layer that offers the
// names that the cameras call, over virtual cameras.

#include <cstddef>
#include <functional>

#ifdef VORNA_HAVE_LIBCAER
#include <libcaercpp/devices/davis.hpp>
#include <libcaercpp/devices/dvxplorer.hpp>
#else
#include "davis/caer/Devices.h"
#endif

namespace davis::caer {

/// Lets a virtual camera that plays as fast as it is read look how many batches still wait in the graph. `waiting` is
/// called on the thread that calls dataGet(). Nothing for a real camera: the world sets its pace.
inline void setBacklogQuery([[maybe_unused]] libcaer::devices::usb& device,
                            [[maybe_unused]] std::function<std::size_t()> waiting)
{
#ifndef VORNA_HAVE_LIBCAER
    device.setBacklogQuery(std::move(waiting));
#endif
}

} // namespace davis::caer
