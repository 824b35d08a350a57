#include "trovi/BoxedPtr.h"

#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace trovi {

BoxedPtr BoxedPtr::make(std::uint64_t address, std::string_view type)
{
    BoxedPtr result;
    result.address = address;
    result.pid = ::getpid();
    result.type = type;
    return result;
}

bool BoxedPtr::isValid() const { return address != 0 && pid == ::getpid(); }

void BoxedPtr::checkHolds(std::string_view wanted) const
{
    if (isValid() && type == wanted)
        return;
    std::ostringstream text;
    // The spelling stays: scripts compare this text.
    text << "Error in getting resource with type " << wanted << ". "
         << "BoxedPtr is either holding a null pointer, "
         << "holding a pointer that is in another process or requested type doesent match held type."
         << "Address: 0x" << std::hex << address << std::dec << ", "
         << "PID: " << pid << ", "
         << "Current PID: " << ::getpid() << ", "
         << "Held type: " << type << ".\n";
    throw std::runtime_error(text.str());
}

std::ostream& operator<<(std::ostream& stream, const BoxedPtr& boxed)
{
    std::ostringstream text;
    text << "trovi::BoxedPtr{ address = 0x" << std::hex << boxed.address << std::dec << ", pid = " << boxed.pid
         << ", type = " << boxed.type << "}";
    return stream << text.str();
}

} // namespace trovi
