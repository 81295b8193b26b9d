// One connection serves a crash twice: the library first has a dump of itself written, and then the report
// sent. So each request stands behind its length.

#include "tools/zbase-crash-sender/Starter.h"

#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/crash/DumpFile.h>

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using ZBase::os::DumpRequest;
using ZBase::os::kDumpMemories;

constexpr std::uint32_t kLargestRequest = 64 << 20;
constexpr std::uint64_t kLargestMemory = 64 << 20;

bool ReadAll(void* room, std::size_t size) {
    for (std::size_t done = 0; done != size;) {
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min<std::size_t>(size - done, 1 << 16));
        if (!ReadFile(GetStdHandle(STD_INPUT_HANDLE), static_cast<char*>(room) + done, wanted, &count,
                      nullptr) ||
            count == 0)
            return false;
        done += count;
    }
    return true;
}

/// A handle, closed at the end.
class Closed {
public:
    explicit Closed(HANDLE handle) : mHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~Closed() {
        if (mHandle != nullptr) CloseHandle(mHandle);
    }
    Closed(const Closed&) = delete;
    Closed& operator=(const Closed&) = delete;
    HANDLE Get() const { return mHandle; }

private:
    HANDLE mHandle;
};

// The process stands in its crash meanwhile. What it wants to have in its dump is copied, as the writer has
// it from here.
bool WriteDump(std::string_view rest) {
    DumpRequest request{};
    if (rest.size() <= sizeof request || rest.back() != 0) return false;
    std::memcpy(&request, rest.data(), sizeof request);
    const std::wstring path = ZBase::os::FromUtf8(rest.data() + sizeof request);
    const Closed process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, request.process));
    const Closed file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
    if (process.Get() == nullptr || file.Get() == nullptr) return false;
    std::vector<char> memories[kDumpMemories];
    for (std::size_t i = 0; i != kDumpMemories; ++i) {
        memories[i].resize(std::min(request.size[i], kLargestMemory));
        SIZE_T count = 0;
        const bool isRead = ReadProcessMemory(process.Get(), reinterpret_cast<const void*>(request.start[i]),
                                              memories[i].data(), memories[i].size(), &count) != 0;
        request.start[i] = reinterpret_cast<std::uint64_t>(memories[i].data());
        request.size[i] = isRead ? count : 0;
    }
    return ZBase::os::WriteDumpFile(process.Get(), file.Get(), request);
}

}  // namespace

std::string ReadRequest() {
    ZBase::os::PrepareDumpFile();  // before there is a crash
    for (;;) {
        std::uint32_t size = 0;
        if (!ReadAll(&size, sizeof size) || size > kLargestRequest) return "";
        std::string request(size, 0);
        if (!ReadAll(request.data(), size)) return "";
        constexpr std::string_view kDump("dump", sizeof "dump");
        if (!request.starts_with(kDump)) return request;
        if (!Answer(WriteDump(std::string_view(request).substr(kDump.size())) ? '1' : '0')) return "";
    }
}

bool Answer(char answer) {
    DWORD count = 0;
    return WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), &answer, 1, &count, nullptr) && count == 1;
}

// Nobody waits for this process, so it goes on itself.
EPart GoOnInBackground() {
    if (!Answer('1')) return EPart::eFailed;
    CloseHandle(GetStdHandle(STD_INPUT_HANDLE));
    return EPart::eGoesOn;
}

bool LeaveStarter() {
    wchar_t directory[MAX_PATH];
    return GetSystemDirectoryW(directory, MAX_PATH) != 0 && SetCurrentDirectoryW(directory);
}

Starter::Starter(unsigned int process)
    : mProcess(reinterpret_cast<std::intptr_t>(OpenProcess(SYNCHRONIZE, FALSE, process))) {}

Starter::~Starter() {
    if (mProcess != 0) CloseHandle(reinterpret_cast<HANDLE>(mProcess));
}

bool Starter::LivesFor(long long seconds) const {
    if (mProcess == 0) return false;
    const auto milliseconds = static_cast<DWORD>(std::clamp<long long>(seconds, 0, 3600) * 1000);
    return WaitForSingleObject(reinterpret_cast<HANDLE>(mProcess), milliseconds) == WAIT_TIMEOUT;
}
