#pragma once

#include <Base/frame/Standard.h>

namespace ZBase {

/// One owned pointer, or null, as an exported function returns it. Copying transfers the object and leaves
/// the source null; `D` runs on the pointer when the holder ends, unless it was detached.
template <class T, class D>
class ReturnPtr {
public:
    ReturnPtr() = default;
    explicit ReturnPtr(T* object) : mpObject(object) {}
    ReturnPtr(const ReturnPtr& other) : mpObject(other.mpObject) { other.mpObject = nullptr; }
    ReturnPtr& operator=(const ReturnPtr&) = delete;

    ~ReturnPtr() {
        if (mpObject != nullptr) D()(mpObject);
    }

    T* Get() const { return mpObject; }
    T* operator->() const { return mpObject; }
    T& operator*() const { return *mpObject; }
    bool IsNull() const { return mpObject == nullptr; }
    explicit operator bool() const { return mpObject != nullptr; }

    /// Releases the object to the caller, who destroys it; the holder is null.
    [[nodiscard]] T* Detach() {
        T* object = mpObject;
        mpObject = nullptr;
        return object;
    }

    /// Exchanges the held pointer with the caller's.
    void Swap(T*& other) {
        T* held = mpObject;
        mpObject = other;
        other = held;
    }

private:
    mutable T* mpObject = nullptr;  // owned
};

}  // namespace ZBase
