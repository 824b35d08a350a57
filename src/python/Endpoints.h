#pragma once
// Failures of binding and connecting, told with the endpoints: the library's own text names none.

#include <stdexcept>
#include <string>

#include <zmq.hpp>

namespace vorna_python {

/// What `make` makes.
/// @throws std::runtime_error with the library's text and both endpoints
template <class Make>
auto namingEndpoints(const std::string& sender, const std::string& receiver, Make&& make)
{
    try {
        return make();
    } catch (const zmq::error_t& error) {
        throw std::runtime_error(std::string(error.what()) + " (endpoints " + sender + " and " + receiver + ")");
    }
}

} // namespace vorna_python
