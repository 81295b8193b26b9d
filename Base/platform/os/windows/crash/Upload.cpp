// The system's own transport, opened when it is first needed: no program that loads the library needs it. It
// has a limit for each step and none for all of them, so each step gets what is left of the time.

#include <Base/platform/os/crash/Upload.h>
#include <Base/platform/os/shared/MultipartForm.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/crash/ProxySettings.h>

#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

namespace ZBase::os {

namespace {

constexpr int kConnectMilliseconds = 10'000;
constexpr int kAllMilliseconds = 60'000;
constexpr DWORD kAnswerMilliseconds = 2000;
constexpr std::size_t kMostAnswer = 65536;
constexpr std::size_t kPiece = 16384;  // a step of the transport

/// The transport, as far as it is needed.
struct Transport {
    Transport() : library(LoadLibraryW(L"winhttp.dll")) {
        isThere = library != nullptr && Find("WinHttpOpen", open) && Find("WinHttpConnect", connect) &&
                  Find("WinHttpOpenRequest", openRequest) && Find("WinHttpSetTimeouts", setTimeouts) &&
                  Find("WinHttpSetOption", setOption) && Find("WinHttpSetCredentials", setCredentials) &&
                  Find("WinHttpSendRequest", send) && Find("WinHttpWriteData", write) &&
                  Find("WinHttpReceiveResponse", receive) && Find("WinHttpQueryHeaders", query) &&
                  Find("WinHttpQueryDataAvailable", available) && Find("WinHttpReadData", read) &&
                  Find("WinHttpCloseHandle", close) && Find("WinHttpCrackUrl", crack);
    }
    ~Transport() {
        if (library != nullptr) FreeLibrary(library);
    }
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    template <class Function>
    bool Find(const char* name, Function& function) const {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
        return function != nullptr;
    }

    HMODULE library;
    bool isThere = false;
    decltype(&WinHttpOpen) open = nullptr;
    decltype(&WinHttpConnect) connect = nullptr;
    decltype(&WinHttpOpenRequest) openRequest = nullptr;
    decltype(&WinHttpSetTimeouts) setTimeouts = nullptr;
    decltype(&WinHttpSetOption) setOption = nullptr;
    decltype(&WinHttpSetCredentials) setCredentials = nullptr;
    decltype(&WinHttpSendRequest) send = nullptr;
    decltype(&WinHttpWriteData) write = nullptr;
    decltype(&WinHttpReceiveResponse) receive = nullptr;
    decltype(&WinHttpQueryHeaders) query = nullptr;
    decltype(&WinHttpQueryDataAvailable) available = nullptr;
    decltype(&WinHttpReadData) read = nullptr;
    decltype(&WinHttpCloseHandle) close = nullptr;
    decltype(&WinHttpCrackUrl) crack = nullptr;
};

struct Address {
    std::wstring host;
    std::wstring place;
    INTERNET_PORT port = 0;
    bool isSecure = false;
};

bool Split(const Transport& transport, const std::string& url, Address& address) {
    const std::wstring text = FromUtf8(url);
    URL_COMPONENTS parts{};
    parts.dwStructSize = sizeof parts;
    parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
    if (!transport.crack(text.c_str(), static_cast<DWORD>(text.size()), 0, &parts)) return false;
    address.host.assign(parts.lpszHostName, parts.dwHostNameLength);
    address.place.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
    const std::wstring extra(parts.lpszExtraInfo, parts.dwExtraInfoLength);
    address.place += extra.substr(0, extra.find(L'#'));
    if (address.place.empty() || address.place[0] != L'/') address.place.insert(0, L"/");
    address.port = parts.nPort;
    address.isSecure = parts.nScheme == INTERNET_SCHEME_HTTPS;
    return !address.host.empty();
}

/// A file that goes along.
class OpenFile {
public:
    explicit OpenFile(const std::string& path)
        : mFile(CreateFileW(FromUtf8(path).c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_SEQUENTIAL_SCAN, nullptr)) {
        LARGE_INTEGER size{};
        if (mFile != INVALID_HANDLE_VALUE && GetFileSizeEx(mFile, &size))
            mSize = static_cast<std::uint64_t>(size.QuadPart);
    }
    ~OpenFile() {
        if (mFile != INVALID_HANDLE_VALUE) CloseHandle(mFile);
    }
    OpenFile(OpenFile&& other) noexcept : mFile(other.mFile), mSize(other.mSize) {
        other.mFile = INVALID_HANDLE_VALUE;
    }
    OpenFile& operator=(OpenFile&&) = delete;

    bool IsOpen() const { return mFile != INVALID_HANDLE_VALUE; }
    std::uint64_t Size() const { return mSize; }

    // All of it as it was when it was opened; false if it is shorter now.
    template <class Take>
    bool Read(Take take) const {
        std::vector<char> piece(kPiece);
        for (std::uint64_t left = mSize; left != 0;) {
            DWORD count = 0;
            const auto wanted = static_cast<DWORD>(std::min<std::uint64_t>(left, piece.size()));
            if (!ReadFile(mFile, piece.data(), wanted, &count, nullptr) || count == 0) return false;
            if (!take(std::string_view(piece.data(), count))) return false;
            left -= count;
        }
        return true;
    }

private:
    HANDLE mFile;
    std::uint64_t mSize = 0;
};

/// A multipart form, which is written in pieces and whose length is known before.
class Form {
public:
    Form(const UploadFields& parameters, const UploadFields& files) {
        LARGE_INTEGER ticks{};
        QueryPerformanceCounter(&ticks);
        char text[64];
        std::snprintf(text, sizeof text, "------------------------%08lx%016llx", GetCurrentProcessId(),
                      static_cast<unsigned long long>(ticks.QuadPart) * 0x9E3779B97F4A7C15);
        const MultipartForm form{text};
        mBoundary = form.boundary;
        for (const auto& [name, value] : parameters) mFields += form.FieldHead(name) + value + "\r\n";
        for (const auto& [name, path] : files) {
            mHeads.push_back(form.FileHead(name, path));
            mFiles.emplace_back(path);
            mIsWhole = mIsWhole && mFiles.back().IsOpen();
        }
        mEnd = form.End();
    }

    bool IsWhole() const { return mIsWhole; }
    const std::string& Boundary() const { return mBoundary; }

    std::uint64_t Size() const {
        std::uint64_t size = mFields.size() + mEnd.size();
        for (std::size_t i = 0; i != mFiles.size(); ++i) size += mHeads[i].size() + mFiles[i].Size() + 2;
        return size;
    }

    template <class Take>
    bool Write(Take take) const {
        if (!take(std::string_view(mFields))) return false;
        for (std::size_t i = 0; i != mFiles.size(); ++i) {
            if (!take(std::string_view(mHeads[i])) || !mFiles[i].Read(take) ||
                !take(std::string_view("\r\n")))
                return false;
        }
        return take(std::string_view(mEnd));
    }

private:
    std::string mBoundary;
    std::string mFields;
    std::vector<std::string> mHeads;
    std::vector<OpenFile> mFiles;
    std::string mEnd;
    bool mIsWhole = true;
};

/// A handle of the transport.
class Handle {
public:
    Handle(const Transport& transport, HINTERNET handle) : mTransport(transport), mHandle(handle) {}
    ~Handle() {
        if (mHandle != nullptr) mTransport.close(mHandle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HINTERNET Get() const { return mHandle; }

private:
    const Transport& mTransport;
    HINTERNET mHandle;
};

class Post {
public:
    Post(const Transport& transport, const Address& address)
        : mTransport(transport),
          mProxy(FindProxy(address.isSecure)),
          mSession(transport,
                   transport.open(L"zbase-crash-sender",
                                  mProxy.server.empty() ? WINHTTP_ACCESS_TYPE_DEFAULT_PROXY
                                                        : WINHTTP_ACCESS_TYPE_NAMED_PROXY,
                                  mProxy.server.empty() ? WINHTTP_NO_PROXY_NAME : mProxy.server.c_str(),
                                  mProxy.direct.empty() || mProxy.server.empty() ? WINHTTP_NO_PROXY_BYPASS
                                                                                 : mProxy.direct.c_str(),
                                  0)),
          mConnection(transport, transport.connect(mSession.Get(), address.host.c_str(), address.port, 0)),
          mRequest(transport, transport.openRequest(mConnection.Get(), L"POST", address.place.c_str(),
                                                    nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                    address.isSecure ? WINHTTP_FLAG_SECURE : 0)) {}

    // The status, or 0.
    long Send(const Form& form, std::string* answer) {
        if (mRequest.Get() == nullptr || form.Size() > 0xFFFFFFFF) return 0;
        DWORD off = WINHTTP_DISABLE_REDIRECTS;
        mTransport.setOption(mRequest.Get(), WINHTTP_OPTION_DISABLE_FEATURE, &off, sizeof off);
        if (!mProxy.user.empty())
            mTransport.setCredentials(mRequest.Get(), WINHTTP_AUTH_TARGET_PROXY, WINHTTP_AUTH_SCHEME_BASIC,
                                      mProxy.user.c_str(), mProxy.password.c_str(), nullptr);
        const std::wstring head = L"Content-Type: multipart/form-data; boundary=" + FromUtf8(form.Boundary());
        if (!HasTime() || !mTransport.send(mRequest.Get(), head.c_str(), static_cast<DWORD>(head.size()),
                                           WINHTTP_NO_REQUEST_DATA, 0, static_cast<DWORD>(form.Size()), 0))
            return 0;
        // A server may answer before it has read all, as to what it refuses.
        form.Write([this](std::string_view piece) { return Write(piece); });
        if (!HasTime() || !mTransport.receive(mRequest.Get(), nullptr)) return 0;
        DWORD status = 0;
        DWORD size = sizeof status;
        if (!mTransport.query(mRequest.Get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                              WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX))
            return 0;
        if (answer != nullptr && status < 400) ReadAnswer(*answer);
        return static_cast<long>(status);
    }

private:
    // Whether there is some left, which becomes the limit of the next step.
    bool HasTime() {
        const ULONGLONG now = GetTickCount64();
        if (now >= mEnd) return false;
        auto left = static_cast<DWORD>(mEnd - now);
        mTransport.setTimeouts(mRequest.Get(), kConnectMilliseconds, kConnectMilliseconds,
                               static_cast<int>(left), static_cast<int>(left));
        mTransport.setOption(mRequest.Get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &left, sizeof left);
        return true;
    }

    bool Write(std::string_view piece) {
        while (!piece.empty()) {
            const auto size = static_cast<DWORD>(std::min(piece.size(), kPiece));
            DWORD count = 0;
            if (!HasTime() || !mTransport.write(mRequest.Get(), piece.data(), size, &count) || count == 0)
                return false;
            piece.remove_prefix(count);
        }
        return true;
    }

    void ReadAnswer(std::string& answer) {
        DWORD wait = kAnswerMilliseconds;
        mTransport.setOption(mRequest.Get(), WINHTTP_OPTION_RECEIVE_TIMEOUT, &wait, sizeof wait);
        const ULONGLONG end = GetTickCount64() + wait;
        std::vector<char> piece(4096);
        while (answer.size() < kMostAnswer && GetTickCount64() < end) {
            // What is asked for is waited for, so it is what has come.
            DWORD there = 0;
            if (!mTransport.available(mRequest.Get(), &there) || there == 0) return;
            const std::size_t room = std::min(piece.size(), kMostAnswer - answer.size());
            DWORD count = 0;
            if (!mTransport.read(mRequest.Get(), piece.data(),
                                 static_cast<DWORD>(std::min<std::size_t>(there, room)), &count) ||
                count == 0)
                return;
            answer.append(piece.data(), count);
        }
    }

    const Transport& mTransport;
    ProxySettings mProxy;
    Handle mSession;
    Handle mConnection;
    Handle mRequest;
    const ULONGLONG mEnd = GetTickCount64() + kAllMilliseconds;
};

}  // namespace

long PostForm(const std::string& url, const UploadFields& parameters, const UploadFields& files,
              std::string* answer) {
    const Transport transport;
    Address address;
    const Form form(parameters, files);
    if (!transport.isThere || !form.IsWhole() || !Split(transport, url, address)) return 0;
    return Post(transport, address).Send(form, answer);
}

}  // namespace ZBase::os
