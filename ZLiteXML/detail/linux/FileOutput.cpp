#include "../Failure.h"
#include "../Output.h"
#include "FilePlace.h"
#include "NewFile.h"
#include "Transfer.h"

#include <Base/messages/SystemErrors.h>
#include <Base/text/UnicodeConversions.h>

#include <fcntl.h>
#include <cerrno>

namespace ZLiteXML {

namespace {

std::string Describe(int error) {
    const ZBase::ReturnWString text = ZBase::GetStandardCLibraryErrorDescriptionOrNULL(error);
    if (text.c_str() == nullptr) return "error " + std::to_string(error);
    return ZBase::WideCharToUTF8(text.c_str(), true).c_str();
}

/// The document is in a new file that then replaces the old one. If that is impossible, because the directory
/// is not writable or the file is a mount point, its content is copied; a device or a pipe also gets a copy.
class FileOutput final : public Output {
public:
    explicit FileOutput(const char* file);
    void Write(std::string_view text) override;
    void Commit() override;
    void Append(std::string_view text) override;

private:
    void Open();
    int Look();
    void CopyToFile();
    void CopyToDevice(int flags);
    void Check(int error) const;

    std::string mFile;  // the path as passed in, for failures
    FilePlace mPlace;
    struct stat mOld {};
    bool mIsThere = false;   // `mOld` is valid
    bool mIsDevice = false;  // anything but a file that can be replaced
    NewFile mNew;
    Descriptor mInPlace;  // the file whose content was replaced
};

void FileOutput::Check(int error) const {
    if (error != 0) ThrowFailure(mFile + ": " + Describe(error));
}

FileOutput::FileOutput(const char* file) : mFile(file) {
    Check(mPlace.Find(mFile));
    Check(mPlace.FollowLinks());
    Check(Look());
}

int FileOutput::Look() {
    const int error = mPlace.Look(mOld);
    if (error != 0 && error != ENOENT) return error;
    mIsThere = error == 0;
    mIsDevice = mIsThere && !S_ISREG(mOld.st_mode);
    return mIsThere && S_ISDIR(mOld.st_mode) ? EISDIR : 0;
}

void FileOutput::Open() {
    int error = EXDEV;
    if (!mIsDevice) error = mNew.Create(mPlace, mIsThere ? &mOld : nullptr);
    const bool isClosed = error == EACCES || error == EPERM || error == EROFS || error == EXDEV;
    if (isClosed && mIsThere) error = mNew.CreateElsewhere();
    Check(error);
}

void FileOutput::Write(std::string_view text) {
    if (!mNew.IsOpen()) Open();
    Check(WriteAll(mNew.Get(), text));
}

void FileOutput::Commit() {
    Check(Look());
    if (mIsDevice) {
        CopyToDevice(O_TRUNC);
        return;
    }
    if (mIsThere) Check(mNew.TakeAfter(mPlace, mOld));
    const int error = mNew.TakePlace();
    const bool isPlaceFixed =
        error == EBUSY || error == EXDEV || error == EACCES || error == EPERM || error == EROFS;
    if (isPlaceFixed && mIsThere) {
        CopyToFile();
    } else {
        Check(error);
    }
}

void FileOutput::CopyToFile() {
    mNew.RemoveName();
    mInPlace = Descriptor(openat(mPlace.Directory(), mPlace.Name(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!mInPlace.IsOpen()) Check(errno);
    Check(ReplaceContent(mNew.Get(), mInPlace.Get()));
}

// The reader of a pipe gets end of file at the end of the document.
void FileOutput::CopyToDevice(int flags) {
    const BrokenPipesFail guard;
    // That of a pipe waits for its reader.
    int file = -1;
    do {
        file = openat(mPlace.Directory(), mPlace.Name(), O_WRONLY | O_NOCTTY | O_CLOEXEC | flags);
    } while (file < 0 && errno == EINTR);
    const Descriptor device(file);
    if (!device.IsOpen()) Check(errno);
    Check(CopyAll(mNew.Get(), device.Get()));
}

void FileOutput::Append(std::string_view text) {
    if (mIsDevice) {
        const BrokenPipesFail guard;
        const Descriptor device(openat(mPlace.Directory(), mPlace.Name(),
                                       O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!device.IsOpen()) Check(errno);
        Check(WriteAll(device.Get(), text));
        return;
    }
    const int file = mInPlace.IsOpen() ? mInPlace.Get() : mNew.Get();
    const off_t end = lseek(file, 0, SEEK_END);
    if (end < 0) Check(errno);
    int error = WriteAll(file, text);
    if (error == 0 && fsync(file) != 0) error = errno;
    if (error != 0 && ftruncate(file, end) != 0) error = errno;
    Check(error);
}

}  // namespace

std::unique_ptr<Output> CreateFileOutput(const char* file) {
    return std::make_unique<FileOutput>(file);
}

}  // namespace ZLiteXML
