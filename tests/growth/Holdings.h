#pragma once

namespace test {

/// Watches the heap and the pages of this process, as this program stands in front of `malloc`, `mmap` and
/// their kin. One watch at a time.
class HoldingsWatch {
public:
    HoldingsWatch();

    /// The most octets held at once since it began, beyond those that were held then.
    double Peak() const;

    /// Octets that were allocated since it began.
    double Handed() const;

private:
    long mStart;
};

}  // namespace test
