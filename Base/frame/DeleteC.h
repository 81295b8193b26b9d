#pragma once

namespace ZBase {

/// Deleter that destroys an object through its virtual destructor; null is allowed.
template <class T>
struct DeleteC {
    void operator()(T* object) const { delete object; }
};

}  // namespace ZBase
