#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// An object that lives as long as it is referenced. Used as a virtual base.
class ZBASE_API ReferenceCounted {
public:
    virtual ~ReferenceCounted() = default;

    /// Takes a reference.
    virtual void AddRef() = 0;

    /// Drops a reference; the last one destroys the object.
    virtual void Release() = 0;
};

}  // namespace ZBase
