#include "../Failure.h"
#include "../Output.h"
#include "Handle.h"

#include <Base/messages/SystemErrors.h>
#include <Base/text/UnicodeConversions.h>

#include <atomic>
#include <cwchar>
#include <string>

namespace ZLiteXML {

namespace {

constexpr int kAttempts = 16;  // to find a name that is not taken

std::string Describe(DWORD code) {
    const ZBase::ReturnWString text = ZBase::GetWin32APIErrorDescriptionOrNULL(code, 0);
    if (text.c_str() == nullptr) return "error " + std::to_string(code);
    std::string narrow = ZBase::WideCharToUTF8(text.c_str(), true).c_str();
    narrow.erase(narrow.find_last_not_of("\r\n.") + 1);
    return narrow;
}

std::wstring ToWide(const std::string& path) {
    const ZBase::ReturnWString wide = ZBase::UTF8ToWideChar(path.c_str(), true);
    return reinterpret_cast<const wchar_t*>(wide.c_str());
}

/// The document waits in a file that nobody else can open, and then replaces the old one. Where that can't
/// be, because nothing may be made in the directory, its content is copied; and so it is to a device or a
/// pipe.
class FileOutput final : public Output {
public:
    explicit FileOutput(const char* file);
    ~FileOutput() override;
    void Write(std::string_view text) override;
    void Commit() override;
    void Append(std::string_view text) override;

private:
    DWORD FindPlace();
    DWORD Look();
    void Open();
    DWORD CreateIn(const std::wstring& directory);
    DWORD TakePlace();
    DWORD CopyToFile();
    void CopyToDevice();
    Handle OpenTarget(DWORD disposition) const;
    void Check(DWORD code) const;

    std::string mFile;    // as it was named, for failures
    std::wstring mPlace;  // the whole path, behind all links
    bool mIsThere = false;
    bool mIsDevice = false;     // anything but a file that can be replaced
    bool mIsElsewhere = false;  // the document waits in another directory
    std::wstring mWaiting;      // the file that waits; empty: none
    Handle mNew;
};

void FileOutput::Check(DWORD code) const {
    if (code != ERROR_SUCCESS) ThrowFailure(mFile + ": " + Describe(code));
}

FileOutput::FileOutput(const char* file) : mFile(file) {
    Check(FindPlace());
    Check(Look());
}

FileOutput::~FileOutput() {
    mNew.Close();
    if (!mWaiting.empty()) DeleteFileW(mWaiting.c_str());
}

DWORD FileOutput::FindPlace() {
    const std::wstring path = ToWide(mFile);
    if (path.empty()) return ERROR_PATH_NOT_FOUND;
    wchar_t whole[0x8000];
    const DWORD length = GetFullPathNameW(path.c_str(), 0x8000, whole, nullptr);
    if (length == 0 || length >= 0x8000) return length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE;
    mPlace = whole;
    const DWORD attributes = GetFileAttributesW(whole);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return ERROR_SUCCESS;
    const Handle end(CreateFileW(whole, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!end.IsOpen()) return GetLastError();
    const DWORD real = GetFinalPathNameByHandleW(end.Get(), whole, 0x8000, FILE_NAME_NORMALIZED);
    if (real != 0 && real < 0x8000) mPlace = whole;
    return ERROR_SUCCESS;
}

DWORD FileOutput::Look() {
    const DWORD attributes = GetFileAttributesW(mPlace.c_str());
    mIsThere = attributes != INVALID_FILE_ATTRIBUTES;
    const DWORD code = mIsThere ? ERROR_SUCCESS : GetLastError();
    mIsDevice = mPlace.starts_with(L"\\\\.\\") || (mIsThere && (attributes & FILE_ATTRIBUTE_DEVICE) != 0);
    if (mIsDevice) return ERROR_SUCCESS;
    if (mIsThere && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ERROR_ACCESS_DENIED;
    return code == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : code;
}

DWORD FileOutput::CreateIn(const std::wstring& directory) {
    static std::atomic<unsigned long long> count = 0;
    for (int attempt = 0; attempt != kAttempts; ++attempt) {
        LARGE_INTEGER now{};
        QueryPerformanceCounter(&now);
        const unsigned long long number = static_cast<unsigned long long>(now.QuadPart) << 24 ^
                                          static_cast<unsigned long long>(GetCurrentProcessId()) << 8 ^
                                          ++count;
        wchar_t name[40];
        swprintf(name, sizeof name / sizeof *name, L".zlitexml-%016llx.part", number);
        const std::wstring path = directory + name;
        mNew = Handle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_TEMPORARY, nullptr));
        if (mNew.IsOpen()) {
            mWaiting = path;
            return ERROR_SUCCESS;
        }
        if (GetLastError() != ERROR_FILE_EXISTS) return GetLastError();
    }
    return ERROR_FILE_EXISTS;
}

void FileOutput::Open() {
    DWORD code = ERROR_ACCESS_DENIED;
    if (!mIsDevice) code = CreateIn(mPlace.substr(0, mPlace.rfind(L'\\') + 1));
    if ((code == ERROR_ACCESS_DENIED || code == ERROR_WRITE_PROTECT) && (mIsThere || mIsDevice)) {
        wchar_t folder[MAX_PATH + 1];
        const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
        mIsElsewhere = true;
        code = length == 0 || length > MAX_PATH ? static_cast<DWORD>(ERROR_PATH_NOT_FOUND) : CreateIn(folder);
    }
    Check(code);
}

void FileOutput::Write(std::string_view text) {
    if (!mNew.IsOpen()) Open();
    Check(mNew.WriteAll(text));
}

Handle FileOutput::OpenTarget(DWORD disposition) const {
    return Handle(
        CreateFileW(mPlace.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, disposition, 0, nullptr));
}

void FileOutput::Commit() {
    Check(Look());
    if (mIsDevice) {
        CopyToDevice();
        return;
    }
    Check(mNew.Flush());
    Check(mIsElsewhere ? CopyToFile() : TakePlace());
}

// The old file gives the new one its owner and its access list.
DWORD FileOutput::TakePlace() {
    SetFileAttributesW(mWaiting.c_str(), FILE_ATTRIBUTE_NORMAL);
    mNew.Close();
    if (mIsThere && ReplaceFileW(mPlace.c_str(), mWaiting.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS,
                                 nullptr, nullptr)) {
        mWaiting.clear();
        return ERROR_SUCCESS;
    }
    // Behind one failure the old file has gone: what waits is the only document then.
    const bool isOnlyOne = mIsThere && GetLastError() == ERROR_UNABLE_TO_MOVE_REPLACEMENT;
    if (mIsThere && !isOnlyOne) return GetLastError();
    const bool isMoved = MoveFileExW(mWaiting.c_str(), mPlace.c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
    const DWORD code = isMoved ? ERROR_SUCCESS : GetLastError();
    if (isMoved || isOnlyOne) mWaiting.clear();  // it stays
    return code;
}

// The room is taken before anything of the old content goes.
DWORD FileOutput::CopyToFile() {
    LARGE_INTEGER old{};
    LARGE_INTEGER size{};
    const Handle target = OpenTarget(OPEN_EXISTING);
    if (!target.IsOpen()) return GetLastError();
    DWORD code = target.SizeTo(old);
    if (code == ERROR_SUCCESS) code = mNew.SizeTo(size);
    if (code == ERROR_SUCCESS && size.QuadPart > old.QuadPart) code = target.CutTo(size);
    if (code != ERROR_SUCCESS) {
        target.CutTo(old);
        return code;
    }
    code = target.GoTo({});
    if (code == ERROR_SUCCESS) code = mNew.CopyAllTo(target);
    if (code == ERROR_SUCCESS) code = target.CutTo(size);
    return code == ERROR_SUCCESS ? target.Flush() : code;
}

void FileOutput::CopyToDevice() {
    const Handle device = OpenTarget(OPEN_EXISTING);
    if (!device.IsOpen()) Check(GetLastError());
    Check(mNew.CopyAllTo(device));
}

void FileOutput::Append(std::string_view text) {
    const Handle target = OpenTarget(OPEN_EXISTING);
    if (!target.IsOpen()) Check(GetLastError());
    if (mIsDevice) {
        Check(target.WriteAll(text));
        return;
    }
    LARGE_INTEGER end{};
    Check(target.SizeTo(end));
    Check(target.GoTo(end));
    DWORD code = target.WriteAll(text);
    if (code == ERROR_SUCCESS) code = target.Flush();
    if (code != ERROR_SUCCESS) target.CutTo(end);
    Check(code);
}

}  // namespace

std::unique_ptr<Output> CreateFileOutput(const char* file) {
    return std::make_unique<FileOutput>(file);
}

}  // namespace ZLiteXML
