#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/WideString.h>

#include <cstddef>
#include <functional>

namespace ZBase {

/// A process-wide budget: every registered governor is called for every chunk of every buffer, in the order
/// of their addresses, until one refuses. Those called before it are not called again when the chunk is
/// refused. A function that is empty when it is called throws `std::bad_function_call`.
struct MemGovernorProxy {
    /// Called with the bytes of a chunk; true grants.
    std::function<bool(std::size_t)> mRequest;

    /// Called with the bytes that a buffer frees when it ends or is detached: all that it ever held,
    /// including chunks that other governors were called for.
    std::function<void(std::size_t)> mRelease;

    /// The text of a refusal of so many bytes.
    std::function<WideString(std::size_t)> mRefusalText;
};

/// Registers a governor, which stays the caller's and must stay valid until it is unregistered. Null, or one
/// that is registered already, changes nothing. Must not run while a buffer takes or gives back memory.
ZBASE_API void RegisterMemGovernor(MemGovernorProxy* proxy);

/// Unregisters a governor; an unknown one changes nothing. It is not credited for what it granted before.
ZBASE_API void UnregisterMemGovernor(MemGovernorProxy* proxy);

}  // namespace ZBase
