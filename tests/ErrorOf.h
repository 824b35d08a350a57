#pragma once
// The text with which an action fails; "no error" when it doesn't.

#include <exception>
#include <string>

template <class Action>
std::string errorOf(Action action)
{
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}
