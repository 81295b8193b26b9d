#include "Output.h"
#include "Failure.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

namespace ZLiteXML {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void ThrowFileFailure(const std::string& file, const std::error_code& code) {
    ThrowFailure(file + ": " + code.message());
}

std::error_code LastError() {
    return {errno, std::generic_category()};
}

void WriteAll(std::FILE* stream, const std::string& text, const std::string& file) {
    std::error_code code;
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size()) code = LastError();
    if (std::fclose(stream) != 0 && !code) code = LastError();
    if (code) ThrowFileFailure(file, code);
}

/// A new file beside another, which takes its place in the end or is gone.
class Replacement {
public:
    explicit Replacement(const fs::path& target) : mTarget(target) {
        std::random_device random;
        for (int attempt = 0; attempt < kAttempts && mpStream == nullptr; ++attempt) {
            mName = target.string() + "." + std::to_string(random()) + ".part";
            mpStream = std::fopen(mName.c_str(), "wbx");
            if (mpStream == nullptr && errno != EEXIST) break;
        }
        if (mpStream == nullptr) ThrowFileFailure(target.string(), LastError());
    }
    ~Replacement() {
        std::error_code ignored;
        if (!mDone) fs::remove(mName, ignored);
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void Write(const std::string& text) { WriteAll(mpStream, text, mTarget.string()); }

    void TakePlace() {
        std::error_code code;
        const fs::file_status old = fs::status(mTarget, code);
        if (fs::exists(old)) fs::permissions(mName, old.permissions(), code);
        fs::rename(mName, mTarget, code);
        if (code) ThrowFileFailure(mTarget.string(), code);
        mDone = true;
    }

private:
    static constexpr int kAttempts = 16;

    fs::path mTarget;
    std::string mName;
    std::FILE* mpStream = nullptr;  // closed by `Write`
    bool mDone = false;
};

}  // namespace

void FileOutput::Commit() {
    std::error_code code;
    const fs::file_status status = fs::status(mFile, code);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        std::FILE* stream = std::fopen(mFile.c_str(), "wb");
        if (stream == nullptr) ThrowFileFailure(mFile, LastError());
        WriteAll(stream, mText, mFile);
        return;
    }
    // A link stays a link: what it points to is replaced.
    fs::path target = fs::weakly_canonical(mFile, code);
    if (code) target = mFile;
    Replacement replacement(target);
    replacement.Write(mText);
    replacement.TakePlace();
}

}  // namespace ZLiteXML
