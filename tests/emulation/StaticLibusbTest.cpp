// A program that has libusb linked in: nothing can be put under it, and plugging a board in says so.

#include <stdexcept>

#include <gmock/gmock.h>
#include <libusb-1.0/libusb.h>

#include "emulation/attach/Attach.h"
#include "emulation/boards/LoopbackDevice.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(StaticLibusb, IsRefusedWithARemedyEachTime)
{
    EXPECT_NE(libusb_get_version(), nullptr); // takes libusb out of the archive
    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_THAT([] { emulation::plug(std::make_shared<emulation::LoopbackDevice>("A1")); },
                    ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("libusb is linked into the program"),
                                                            HasSubstr("install libusb-1.0-0"),
                                                            HasSubstr("LD_PRELOAD=libusb-1.0.so.0"))));
    EXPECT_TRUE(emulation::Bus::instance().ports().empty());
}

} // namespace
