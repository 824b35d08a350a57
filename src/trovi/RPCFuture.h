#pragma once
// Waiting for the answer to a call.

#include <future>
#include <memory>
#include <utility>

#include "trovi/Messages.h"

namespace trovi {

/// A future and the callback that fulfils it with the value read from the answer. A callback that is destroyed without
/// having run, as when the node stops, breaks the promise.
template <class T>
std::pair<std::future<T>, messages::Callback> RPCFuture()
{
    auto promise = std::make_shared<std::promise<T>>();
    auto future = promise->get_future();
    return {std::move(future), [promise = std::move(promise)](std::istream& stream) {
                if constexpr (std::is_void_v<T>)
                    promise->set_value();
                else
                    promise->set_value(deserializeElement<T>(stream));
            }};
}

} // namespace trovi
