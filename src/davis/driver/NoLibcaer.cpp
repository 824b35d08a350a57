#include "davis/driver/Libcaer.h"

namespace davis::driver {

std::unique_ptr<Driver> openLibcaer(CameraKind /*kind*/) { return nullptr; }

} // namespace davis::driver
