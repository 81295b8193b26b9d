#pragma once

namespace ZBase {

/// Base of classes whose objects must not be copied.
class NoCopy {
public:
    NoCopy(const NoCopy&) = delete;
    NoCopy& operator=(const NoCopy&) = delete;

protected:
    NoCopy() {}
    ~NoCopy() = default;
};

}  // namespace ZBase
