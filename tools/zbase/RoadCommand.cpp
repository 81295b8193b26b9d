#include "Commands.h"
#include "Console.h"
#include "RecordView.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>

#include <string>
#include <vector>

// The library at work on a real file. Each station lets something real fail, and follows the failure: thrown
// as a record where it happens, caught and wrapped by each caller that knows more, shown at the end as a tree
// and as bytes.

namespace {

using ZBase::ExceptionImpl;
using ZBase::Message;

// Ids of this command's own messages, in the domain of the server.
constexpr int kCannotOpen = 101;
constexpr int kCannotRead = 102;
constexpr int kNotText = 103;
constexpr int kLoadFailed = 110;

constexpr std::size_t kPieceSize = 1024;

/// An open file, closed at the end of its scope.
class OpenFile {
public:
    explicit OpenFile(const std::string& file) : mDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (mDescriptor < 0) Throw(errno, kCannotOpen, "Cannot open %1.", file);
    }
    ~OpenFile() { close(mDescriptor); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    std::string ReadPiece(const std::string& file) {
        std::string piece(kPieceSize, '\0');
        const ssize_t count = read(mDescriptor, piece.data(), piece.size());
        if (count < 0) Throw(errno, kCannotRead, "Cannot read %1.", file);
        piece.resize(static_cast<std::size_t>(count));
        return piece;
    }

private:
    [[noreturn]] static void Throw(int errorNumber, int id, const char* text, const std::string& file) {
        ExceptionImpl<Message> failure;
        failure.SetDomainAndID(ZBase::MESSAGE_DOMAIN_ERRNO, errorNumber);
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, id, text) << file.c_str();
        throw failure;
    }

    int mDescriptor;
};

struct Loaded {
    std::string text;
    std::size_t pieces = 0;
};

Loaded ReadInPieces(const std::string& file) {
    Loaded loaded;
    OpenFile input(file);
    for (std::string piece = input.ReadPiece(file); !piece.empty(); piece = input.ReadPiece(file)) {
        loaded.text += piece;
        ++loaded.pieces;
    }
    return loaded;
}

void RequireText(const std::string& file, const std::string& text) {
    try {
        std::vector<unsigned short> units(text.size() + 1);
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(text.data()), units.data(), text.size(),
                              false);
    } catch (Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kNotText, "%1 is not text; %2 bytes were read.")
            << file.c_str() << static_cast<unsigned long>(text.size());
        throw;
    }
}

void Load(const std::string& file) {
    try {
        const Loaded loaded = ReadInPieces(file);
        RequireText(file, loaded.text);
        Print("  " + std::to_string(loaded.text.size()) + " bytes in " + std::to_string(loaded.pieces) +
              " pieces of at most " + std::to_string(kPieceSize) + ", all of it UTF-8.\n");
    } catch (Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kLoadFailed, "Process %1 could not load its text.")
            << ZBase::GetCurrentProcessID();
        throw;
    }
}

// One station: what arrives of a load, or of its failure, at the edge of the program.
void Arrive(const std::string& title, const std::string& file) {
    Print("\n" + Styled(title, "1") + "\n");
    try {
        Load(file);
    } catch (const Message& failure) {
        Print(Styled("  caught, as a tree:", "2") + "\n");
        PrintTree(failure);
        Print(Styled("  the same record, byte by byte (offset, length, kind):", "2") + "\n");
        PrintRecords(failure);
    }
}

/// A file of this process that its user may not read, for the time of a scope. An administrator may read
/// everything, so that one becomes an ordinary user meanwhile.
class ForbiddenFile {
public:
    ForbiddenFile() {
        const int descriptor = mkstemp(mName.data());
        if (descriptor < 0 || fchmod(descriptor, 0) != 0) throw FileFailure(mName, errno);
        close(descriptor);
        if (mUser == 0 && seteuid(kNobody) != 0) throw FileFailure(mName, errno);
    }
    ~ForbiddenFile() {
        if (mUser == 0 && seteuid(mUser) != 0) std::abort();
        unlink(mName.c_str());
    }
    ForbiddenFile(const ForbiddenFile&) = delete;
    ForbiddenFile& operator=(const ForbiddenFile&) = delete;

    const std::string& Name() const { return mName; }

private:
    static constexpr uid_t kNobody = 65534;

    std::string mName = "/tmp/zbase-road-XXXXXX";
    uid_t mUser = geteuid();
};

}  // namespace

int RunRoad(const std::string& file) {
    Print(
        "The road of a failure: thrown where it happens, wrapped by every caller that knows more, shown at "
        "the end.\n");
    Arrive("1  " + file + " is read piece by piece", file);
    Arrive("2  A file that is not there", file + ".missing");
    {
        const ForbiddenFile forbidden;
        Arrive("3  A file without permission", forbidden.Name());
    }
    Arrive("4  Bytes that are no text: the zbase command itself", "/proc/self/exe");
    return 0;
}
