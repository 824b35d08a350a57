#include "trovi/SocketProperties.h"

namespace trovi {

zmq::socket_t openSocket(zmq::context_t& context, const std::string& endpoint, SocketProperties properties)
{
    zmq::socket_t socket(context, static_cast<zmq::socket_type>(properties.type));
    // The limits hold for connections made after they are set, so they come before bind and connect.
    socket.set(zmq::sockopt::sndhwm, nodeHighWaterMark);
    socket.set(zmq::sockopt::rcvhwm, nodeHighWaterMark);
    socket.set(zmq::sockopt::sndtimeo, static_cast<int>(nodeSendTimeout.count()));
    if (properties.mode == 1)
        socket.bind(endpoint);
    else
        socket.connect(endpoint);
    socket.set(zmq::sockopt::linger, 0);
    return socket;
}

} // namespace trovi
