#pragma once

#include <windows.h>

#include <cstddef>

#include <Base/platform/os/crash/ReportSender.h>

namespace ZBase::os {

/// A running "zbase-crash-sender", which stands beside the library, and the connection to it. A request goes
/// there behind its length in four octets, and one character comes back. Whoever starts it closes it: it has
/// no destructor, since a crash may come behind all of them.
class SenderProcess {
public:
    SenderProcess() = default;
    SenderProcess(const SenderProcess&) = delete;
    SenderProcess& operator=(const SenderProcess&) = delete;

    /// Starts it. False if there is none, or no memory. Takes the heap.
    bool Start();

    bool IsOpen() const { return mConnection != nullptr; }

    /// Gives the answer, or 0 if none comes within the time. No heap, no lock.
    char Ask(const ReportPiece* pieces, std::size_t count, DWORD milliseconds);

    /// A sender that has no request, or has answered the last one, ends by that.
    void Close();

private:
    bool Connect(HANDLE& other);
    bool Transfer(bool writes, void* octets, DWORD size, ULONGLONG end);

    HANDLE mConnection = nullptr;
    HANDLE mEvent = nullptr;
};

}  // namespace ZBase::os
