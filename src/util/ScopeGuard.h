#pragma once
// Undoes a half-done step when an exception passes, or ends it on every way out:
//
//   table.insert(entry);
//   util::ScopeGuard undo([&] { table.erase(entry); });
//   mayThrow();
//   undo.dismiss();

#include <utility>

namespace util {

/// Calls `action` when the scope is left, unless dismissed before. `action` must not throw.
template <class Action>
class [[nodiscard]] ScopeGuard {
public:
    explicit ScopeGuard(Action action) : action(std::move(action)) {}
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;
    ~ScopeGuard()
    {
        if (armed)
            action();
    }

    void dismiss() { armed = false; }

private:
    Action action;
    bool armed = true;
};

} // namespace util
