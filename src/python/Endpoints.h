#pragma once
// Errors of binding and connecting that name the endpoints: the library's own text names none.

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include <zmq.hpp>

namespace vorna_python {

[[noreturn]] inline void throwWithEndpoints(const char* text, const std::string& sender, const std::string& receiver)
{
    throw std::runtime_error(std::string(text) + " (endpoints " + sender.c_str() + " and " + receiver.c_str() + ")");
}

/// What `make` makes.
/// @throws std::runtime_error with the library's text and both endpoints; also for an endpoint with a zero byte, at
///         which the library would stop reading
template <class Make>
auto namingEndpoints(const std::string& sender, const std::string& receiver, Make&& make)
{
    if ((sender + receiver).find('\0') != std::string::npos)
        throwWithEndpoints(std::strerror(EINVAL), sender, receiver);
    try {
        return make();
    } catch (const zmq::error_t& error) {
        throwWithEndpoints(error.what(), sender, receiver);
    }
}

} // namespace vorna_python
