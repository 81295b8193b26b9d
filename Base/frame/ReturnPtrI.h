#pragma once

#include <Base/frame/Standard.h>

namespace ZBase {

/// A pointer with one reference already held, or null, as an exported function returns it. Copying transfers
/// the reference and leaves the source null; the holder's end drops the reference.
template <class T>
class ReturnPtrI {
public:
    ReturnPtrI() = default;

    /// Takes over the one reference that the caller holds on `object`.
    explicit ReturnPtrI(T* object) : mpObject(object) {}

    ReturnPtrI(const ReturnPtrI& other) : mpObject(other.mpObject) { other.mpObject = nullptr; }
    ReturnPtrI& operator=(const ReturnPtrI&) = delete;

    ~ReturnPtrI() {
        if (mpObject != nullptr) mpObject->Release();
    }

    T* Get() const { return mpObject; }
    T* operator->() const { return mpObject; }
    T& operator*() const { return *mpObject; }
    bool IsNull() const { return mpObject == nullptr; }
    explicit operator bool() const { return mpObject != nullptr; }

    /// Releases the pointer with its reference to the caller, who drops it by `Release`.
    [[nodiscard]] T* Detach() {
        T* object = mpObject;
        mpObject = nullptr;
        return object;
    }

private:
    mutable T* mpObject = nullptr;  // one reference held
};

}  // namespace ZBase
