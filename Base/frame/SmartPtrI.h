#pragma once

#include <Base/frame/Standard.h>

namespace ZBase {

/// A pointer to a reference-counted object, or null. Takes a reference with the pointer and drops it when it
/// ends or is reset.
template <class T>
class SmartPtrI {
public:
    SmartPtrI() = default;
    SmartPtrI(T* object) : mpObject(object) { Acquire(); }
    SmartPtrI(const SmartPtrI& other) : mpObject(other.mpObject) { Acquire(); }
    SmartPtrI(SmartPtrI&& other) noexcept : mpObject(other.mpObject) { other.mpObject = nullptr; }
    ~SmartPtrI() { Reset(); }

    SmartPtrI& operator=(T* object) {
        SmartPtrI(object).Swap(*this);
        return *this;
    }

    SmartPtrI& operator=(const SmartPtrI& other) {
        SmartPtrI(other).Swap(*this);
        return *this;
    }

    SmartPtrI& operator=(SmartPtrI&& other) noexcept {
        SmartPtrI(static_cast<SmartPtrI&&>(other)).Swap(*this);
        return *this;
    }

    T* Get() const { return mpObject; }
    T* operator->() const { return mpObject; }
    T& operator*() const { return *mpObject; }
    bool IsNull() const { return mpObject == nullptr; }
    explicit operator bool() const { return mpObject != nullptr; }

    /// Makes the holder null, before the object is released, so that a destructor that reads its holder finds
    /// null.
    void Reset() {
        T* object = mpObject;
        mpObject = nullptr;
        if (object != nullptr) object->Release();
    }

    void Swap(SmartPtrI& other) noexcept {
        T* held = mpObject;
        mpObject = other.mpObject;
        other.mpObject = held;
    }

private:
    void Acquire() {
        if (mpObject != nullptr) mpObject->AddRef();
    }

    T* mpObject = nullptr;  // one reference held
};

}  // namespace ZBase
