// Reports are compressed by the process that sends them. zlib is opened when needed, as is libcurl: programs
// that load the library need neither.

#include <Base/platform/os/linux/crash/upload/CompressedForm.h>
#include <Base/platform/os/shared/MultipartForm.h>

#include <dlfcn.h>
#include <sys/random.h>
#include <zlib.h>
#include <cstdio>
#include <string_view>
#include <vector>

namespace ZBase::os {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16;
constexpr std::size_t kLargest = std::size_t{128} << 20;
constexpr int kFast = 1;        // the network is slower than the best level
constexpr int kGzip = 15 + 16;  // the largest window, with a gzip header
constexpr int kUsualMemory = 8;

/// The used part of zlib.
struct Zlib {
    Zlib() : library(dlopen("libz.so.1", RTLD_NOW | RTLD_LOCAL)) {
        if (library == nullptr) return;
        begin = reinterpret_cast<decltype(&deflateInit2_)>(dlsym(library, "deflateInit2_"));
        pack = reinterpret_cast<decltype(&deflate)>(dlsym(library, "deflate"));
        end = reinterpret_cast<decltype(&deflateEnd)>(dlsym(library, "deflateEnd"));
    }
    ~Zlib() {
        if (library != nullptr) dlclose(library);
    }
    Zlib(const Zlib&) = delete;
    Zlib& operator=(const Zlib&) = delete;

    bool IsThere() const { return begin != nullptr && pack != nullptr && end != nullptr; }

    void* library;
    decltype(&deflateInit2_) begin = nullptr;
    decltype(&deflate) pack = nullptr;
    decltype(&deflateEnd) end = nullptr;
};

class Packer {
public:
    Packer() : mRoom(kPiece) {
        mIsGood = mZlib.IsThere() &&
                  mZlib.begin(&mStream, kFast, Z_DEFLATED, kGzip, kUsualMemory, Z_DEFAULT_STRATEGY,
                              ZLIB_VERSION, static_cast<int>(sizeof mStream)) == Z_OK;
        mIsOpen = mIsGood;
    }
    ~Packer() {
        if (mIsOpen) mZlib.end(&mStream);
    }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    bool Add(std::string_view piece) { return Pack(piece, Z_NO_FLUSH); }
    bool Finish() { return Pack({}, Z_FINISH); }
    std::string& Octets() { return mOctets; }

private:
    bool Pack(std::string_view piece, int flush) {
        // zlib does not write there; its interface is older than `const`.
        mStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
        mStream.avail_in = static_cast<uInt>(piece.size());
        do {
            if (!mIsGood) return false;
            mStream.next_out = reinterpret_cast<Bytef*>(mRoom.data());
            mStream.avail_out = static_cast<uInt>(mRoom.size());
            const int result = mZlib.pack(&mStream, flush);
            mOctets.append(mRoom.data(), mRoom.size() - mStream.avail_out);
            mIsGood = result != Z_STREAM_ERROR && mOctets.size() <= kLargest;
        } while (mStream.avail_out == 0);
        return mIsGood;
    }

    Zlib mZlib;
    z_stream mStream{};
    std::vector<char> mRoom;
    std::string mOctets;
    bool mIsGood = false;
    bool mIsOpen = false;
};

std::string NewBoundary() {
    unsigned char octets[16] = {};
    if (getrandom(octets, sizeof octets, 0) != static_cast<ssize_t>(sizeof octets)) return "";
    std::string boundary = "------------------------";
    for (const unsigned char octet : octets) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", octet);
        boundary += digits;
    }
    return boundary;
}

bool AddFile(Packer& packer, const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return false;
    std::vector<char> piece(kPiece);
    bool isGood = true;
    while (isGood) {
        const std::size_t count = std::fread(piece.data(), 1, piece.size(), file);
        isGood = packer.Add({piece.data(), count});
        if (count != piece.size()) break;
    }
    isGood = isGood && std::ferror(file) == 0;
    std::fclose(file);
    return isGood;
}

}  // namespace

std::optional<CompressedForm> CompressForm(const UploadFields& parameters, const UploadFields& files) {
    Packer packer;
    const MultipartForm form{NewBoundary()};
    if (form.boundary.empty()) return std::nullopt;
    for (const auto& [name, value] : parameters) {
        if (!packer.Add(form.FieldHead(name)) || !packer.Add(value) || !packer.Add("\r\n"))
            return std::nullopt;
    }
    for (const auto& [name, path] : files) {
        if (!packer.Add(form.FileHead(name, path)) || !AddFile(packer, path) || !packer.Add("\r\n"))
            return std::nullopt;
    }
    if (!packer.Add(form.End()) || !packer.Finish()) return std::nullopt;
    return CompressedForm{form.boundary, std::move(packer.Octets())};
}

}  // namespace ZBase::os
