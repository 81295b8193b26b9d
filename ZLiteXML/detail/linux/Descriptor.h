#pragma once

#include <unistd.h>
#include <utility>

namespace ZLiteXML {

/// An open file, closed by the destructor.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : mNumber(number) {}
    Descriptor(Descriptor&& other) noexcept : mNumber(std::exchange(other.mNumber, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(mNumber, other.mNumber);
        return *this;
    }
    ~Descriptor() {
        if (IsOpen()) close(mNumber);
    }

    bool IsOpen() const { return mNumber >= 0; }
    int Get() const { return mNumber; }

private:
    int mNumber = -1;
};

}  // namespace ZLiteXML
