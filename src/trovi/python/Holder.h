#pragma once
// How Python owns the objects of a class.

#include <memory>
#include <type_traits>
#include <utility>

#include "trovi/python/GilRelease.h"
#include "trovi/python/LiveObjects.h"

namespace trovi::python {

/// Specialise as true for a class whose destruction joins threads: Python then destroys it with the interpreter lock
/// released, and stops it at the interpreter's exit by its stop().
template <class T>
inline constexpr bool ownsThreads = false;

/// Specialise as true for a class whose objects C++ shares: Python's instances then hold a share.
template <class T>
inline constexpr bool isShared = false;

/// Owner of a Python instance whose class owns threads.
template <class T>
struct ThreadOwnerDeleter {
    void operator()(T* object) const
    {
        if (!LiveObjects::forget(object))
            return; // a forked child: the threads are the parent's, and so is the object
        const GilRelease release;
        delete object;
    }
};

template <class T>
using Holder = std::conditional_t<
    isShared<T>, std::shared_ptr<T>,
    std::conditional_t<ownsThreads<T>, std::unique_ptr<T, ThreadOwnerDeleter<T>>, std::unique_ptr<T>>>;

/// Makes an object that a Python instance is about to own. One that owns threads is stopped at the interpreter's exit.
template <class T, class... Args>
T* makeForPython(Args&&... args)
{
    if constexpr (ownsThreads<T>) {
        std::unique_ptr<T> made;
        {
            const GilRelease release;
            made = std::make_unique<T>(std::forward<Args>(args)...);
        }
        T* const object = made.release();
        LiveObjects::remember(object, [object] { object->stop(); });
        return object;
    } else {
        return std::make_unique<T>(std::forward<Args>(args)...).release();
    }
}

template <class T, class... Args>
Holder<T> makeHeld(Args&&... args)
{
    return Holder<T>(makeForPython<T>(std::forward<Args>(args)...));
}

} // namespace trovi::python
