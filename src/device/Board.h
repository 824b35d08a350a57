#pragma once
// A role of drivers: it drives a whole board and never wraps an API.

#include "trovi/Reflect.h"

namespace device {

/// Base of all whole-board drivers.
class Board {
public:
    Board() = default;
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;
    virtual ~Board() = default;
};

} // namespace device

// A store holds it by this base, so it is described, though nothing can be called on it.
template <>
constexpr auto trovi::registerMemberFunctions<device::Board>()
{
    return functions();
}

template <>
constexpr const char* trovi::registerDoc<device::Board>()
{
    return "The driver of a whole board.";
}
