#pragma once

#include <windows.h>

#include <string>
#include <vector>

/// A handle, closed at the end.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : mHandle(handle) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE Get() const { return mHandle; }
    HANDLE* Place() { return &mHandle; }
    void Close() {
        if (mHandle != nullptr) CloseHandle(mHandle);
        mHandle = nullptr;
    }

private:
    HANDLE mHandle;
};

/// Both ends of a pipe, one of which a child may inherit.
struct Pipe {
    /// Throws `Failure`.
    explicit Pipe(bool childReads);

    Handle reading;
    Handle writing;
};

/// Starts a program that inherits these three and no other handle. Null is none. Gives its handle, and its
/// id. Throws `Failure`.
HANDLE StartChild(const std::vector<std::string>& command, HANDLE input, HANDLE output, HANDLE errors,
                  DWORD& id);

/// All that comes through a pipe until it is closed on the other side.
std::string ReadToTheEnd(HANDLE pipe);

/// Waits for the end of a process; its exit code.
DWORD EndOf(HANDLE process);
