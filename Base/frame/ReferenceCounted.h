#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// An object that lives as long as somebody holds a reference to it. Used as a virtual base.
class ZBASE_API ReferenceCounted {
public:
    virtual ~ReferenceCounted() = default;

    /// Takes a reference.
    virtual void AddRef() = 0;

    /// Gives a reference back; the last one destroys the object.
    virtual void Release() = 0;
};

}  // namespace ZBase
