#pragma once

namespace ZBase::os {

/// Calls `function(argument)`; false if that touched memory that is not there, and was left then where it
/// stood. No heap, no lock. For what reads stacks that may be damaged.
bool CallGuarded(void (*function)(void* argument), void* argument);

template <class Function>
bool CallGuarded(Function function) {
    return CallGuarded([](void* argument) { (*static_cast<Function*>(argument))(); }, &function);
}

}  // namespace ZBase::os
