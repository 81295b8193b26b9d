#include <Base/platform/os/windows/crash/DumpWriter.h>

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/windows/crash/CrashEquipment.h>
#include <Base/platform/os/windows/crash/CrashTurns.h>
#include <Base/platform/os/windows/crash/DumpFile.h>
#include <Base/platform/os/windows/files/FileLock.h>
#include <Base/platform/os/windows/files/NativeFile.h>

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr char kDumpOfProcess[] = "dump";
constexpr std::size_t kGuidOctets = 16;

// --- names

std::uint64_t Mix(std::uint64_t value) {
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
    value = (value ^ value >> 27) * 0x94D049BB133111EB;
    return value ^ value >> 31;
}

std::uint64_t MakeSeed() {
    std::uint64_t seed = 0;
    const HMODULE library = LoadLibraryW(L"advapi32.dll");
    const auto fill = library == nullptr
                          ? nullptr
                          : reinterpret_cast<BOOLEAN(WINAPI*)(void*, ULONG)>(
                                reinterpret_cast<void*>(GetProcAddress(library, "SystemFunction036")));
    if (fill != nullptr) fill(&seed, sizeof seed);
    return seed;
}

// A random GUID and ".dmp". No heap, no lock.
template <class Character>
Character* PutName(Character* name, const unsigned char* random) {
    for (std::size_t i = 0; i != kGuidOctets; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *name++ = '-';
        *name++ = static_cast<Character>("0123456789abcdef"[random[i] >> 4]);
        *name++ = static_cast<Character>("0123456789abcdef"[random[i] & 0x0F]);
    }
    for (const char letter : {'.', 'd', 'm', 'p', '\0'}) *name++ = static_cast<Character>(letter);
    return name;
}

void MakeRandom(unsigned char* random) {
    LARGE_INTEGER ticks{};
    FILETIME time{};
    QueryPerformanceCounter(&ticks);
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t now = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    const std::uint64_t here = std::uint64_t{GetCurrentProcessId()} << 32 | GetCurrentThreadId();
    const std::uint64_t halves[] = {
        Mix(gEquipment.seed ^ Mix(static_cast<std::uint64_t>(ticks.QuadPart)) ^ here),
        Mix(Mix(gEquipment.seed + 1) ^ Mix(now) ^ Mix(here))};
    std::memcpy(random, halves, kGuidOctets);
    random[6] = static_cast<unsigned char>(0x40 | (random[6] & 0x0F));
    random[8] = static_cast<unsigned char>(0x80 | (random[8] & 0x3F));
}

void Narrow(const wchar_t* text, char* narrow, std::size_t capacity) {
    if (WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow, static_cast<int>(capacity), nullptr, nullptr) == 0)
        *narrow = 0;
}

// --- the thread that writes where there is no sender

DWORD WINAPI WriteInsideDumps(void*) {
    InsideDump& inside = gEquipment.inside;
    PrepareDumpFile();
    while (WaitForSingleObject(inside.isWanted, INFINITE) == WAIT_OBJECT_0) {
        inside.written = WriteDumpFile(GetCurrentProcess(), inside.file, inside.request);
        SetEvent(inside.isDone);
    }
    return 0;
}

}  // namespace

bool PrepareInsideDumps() {
    InsideDump& inside = gEquipment.inside;
    if (inside.thread != nullptr) return true;
    gEquipment.seed = MakeSeed();
    constexpr SIZE_T kStack = 256 * 1024;
    inside.isWanted = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    inside.isDone = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (inside.isWanted == nullptr || inside.isDone == nullptr) return false;
    inside.thread =
        CreateThread(nullptr, kStack, WriteInsideDumps, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    return inside.thread != nullptr;
}

void PrepareSenderForCrash() {
    if (!gEquipment.senderForCrash.IsOpen()) gEquipment.senderForCrash.Start();
}

SenderProcess* SenderOfThisDump() {
    return gEquipment.dumper == GetCurrentThreadId() ? gEquipment.senderOfDumper.load() : nullptr;
}

DumpWriter::DumpWriter(const std::wstring& directory, DumpUser user, bool onDemand, DumpLimits limits)
    : mUser(user), mOnDemand(onDemand), mLimits(limits) {
    const std::size_t length = std::min(directory.size(), kLongestPath - 2);
    directory.copy(mDirectory, length);
    mDirectory[length] = 0;
    if (length != 0 && mDirectory[length - 1] != L'\\') std::wcscpy(mDirectory + length, L"\\");
    if (GetTempPathW(kLongestPath, mTemporary) == 0) *mTemporary = 0;
    *mPath = 0;
    *mNarrowPath = 0;
    *mElsewhere = 0;
}

bool DumpWriter::Write(EDumpCause cause, EXCEPTION_POINTERS* pointers) {
    const bool isMine = TakeDump();
    if (mOnDemand && (!isMine || IsCrashing())) {  // who has crashed has the senders for himself
        if (isMine) LeaveDump();
        return false;
    }
    if (mOnDemand) gEquipment.senderForDemand.Start();
    gEquipment.dumper = GetCurrentThreadId();
    gEquipment.senderOfDumper = mOnDemand ? &gEquipment.senderForDemand : &gEquipment.senderForCrash;
    const DumpContent content = mUser.begin(cause);
    const bool written = WriteFiles(content, pointers);
    const bool answer = mUser.end({mNarrowPath, written, mOnDemand, *mElsewhere == 0 ? nullptr : mElsewhere});
    CloseFile();  // held until the user is done with it
    gEquipment.senderOfDumper = nullptr;
    gEquipment.dumper = 0;
    if (mOnDemand) gEquipment.senderForDemand.Close();
    if (isMine) LeaveDump();
    return answer;
}

DumpRequest DumpWriter::RequestFor(const DumpContent& content, EXCEPTION_POINTERS* pointers) const {
    DumpRequest request{GetCurrentProcessId(),
                        GetCurrentThreadId(),
                        reinterpret_cast<std::uint64_t>(pointers),
                        std::uint64_t{mLimits.megabytes} << 20,
                        {},
                        {}};
    for (std::size_t i = 0; i != kDumpMemories; ++i) {
        request.start[i] = reinterpret_cast<std::uint64_t>(content.parts[i].start);
        request.size[i] = content.parts[i].size;
    }
    return request;
}

// In the directory, or in the temporary one if nothing can be written there. No heap, no lock.
bool DumpWriter::WriteFiles(const DumpContent& content, EXCEPTION_POINTERS* pointers) {
    *mElsewhere = 0;
    if (WriteIn(mDirectory, content, pointers)) return true;
    const DWORD reason = GetLastError();
    const EPlace kind = LookAtNativePlace(mDirectory);
    if (kind == EPlace::eOther) return false;  // never was a place for dumps
    if (kind == EPlace::eNothing && MakeNativeDirectory(mDirectory, Owner()) &&
        WriteIn(mDirectory, content, pointers)) {
        SayWhere(mDirectory, "made again");
        return true;
    }
    if (*mTemporary == 0) return false;
    char text[256];
    const unsigned int length = FormatSystemMessage(reason, 0x409, text, sizeof text);
    std::fill(std::find_if(text, text + length, [](char letter) { return letter == '\r' || letter == '\n'; }),
              text + length, '\0');
    if (!WriteIn(mTemporary, content, pointers)) return false;
    SayWhere(mTemporary, length == 0 ? "nothing can be written there" : text);
    return true;
}

bool DumpWriter::WriteIn(const wchar_t* directory, const DumpContent& content, EXCEPTION_POINTERS* pointers) {
    if (!OpenFile(directory)) return false;
    if (WriteFromOutside(content, pointers) || WriteFromInside(content, pointers)) return true;
    CloseFile();
    DeleteNativeFile(mPath);
    SetLastError(ERROR_WRITE_FAULT);
    return false;
}

bool DumpWriter::WriteFromOutside(const DumpContent& content, EXCEPTION_POINTERS* pointers) {
    SenderProcess* const sender = SenderOfThisDump();
    if (sender == nullptr || !sender->IsOpen()) return false;
    const DumpRequest request = RequestFor(content, pointers);
    const ReportPiece pieces[] = {{kDumpOfProcess, sizeof kDumpOfProcess},
                                  {reinterpret_cast<const char*>(&request), sizeof request},
                                  {mNarrowPath, std::strlen(mNarrowPath) + 1}};
    if (sender->Ask(pieces, std::size(pieces), 1000 * mLimits.seconds) == '1') return true;
    sender->Close();
    return false;
}

// At the end of a process the other threads are gone before its libraries.
bool DumpWriter::WriteFromInside(const DumpContent& content, EXCEPTION_POINTERS* pointers) {
    InsideDump& inside = gEquipment.inside;
    const DumpRequest request = RequestFor(content, pointers);
    if (inside.thread == nullptr || WaitForSingleObject(inside.thread, 0) == WAIT_OBJECT_0)
        return WriteDumpFile(GetCurrentProcess(), mFile, request);
    inside.file = mFile;
    inside.request = request;
    inside.written = false;
    ResetEvent(inside.isDone);
    SetEvent(inside.isWanted);
    return WaitForSingleObject(inside.isDone, 1000 * mLimits.seconds) == WAIT_OBJECT_0 && inside.written;
}

bool DumpWriter::OpenFile(const wchar_t* directory) {
    unsigned char random[kGuidOctets];
    MakeRandom(random);
    const std::size_t length = std::wcslen(directory);
    std::wmemcpy(mPath, directory, length);
    PutName(mPath + length, random);
    Narrow(mPath, mNarrowPath, sizeof mNarrowPath);
    mFile = OpenNativeFile(mPath, CREATE_NEW, Owner());
    if (mFile == INVALID_HANDLE_VALUE) return false;
    LockFarOut(mFile);  // nobody sends it or makes room meanwhile
    return true;
}

SECURITY_DESCRIPTOR* DumpWriter::Owner() {
    SECURITY_ATTRIBUTES* const owner = mOwner.Get();
    return owner == nullptr ? nullptr : static_cast<SECURITY_DESCRIPTOR*>(owner->lpSecurityDescriptor);
}

void DumpWriter::CloseFile() {
    if (mFile != INVALID_HANDLE_VALUE) CloseHandle(mFile);
    mFile = INVALID_HANDLE_VALUE;
}

void DumpWriter::SayWhere(const wchar_t* directory, const char* reason) {
    char* const end = mElsewhere + sizeof mElsewhere;
    const auto add = [&](char* place, const char* text) {
        const std::size_t length = std::min(std::strlen(text), static_cast<std::size_t>(end - place) - 1);
        std::memcpy(place, text, length);
        place[length] = 0;
        return place + length;
    };
    const auto addPath = [&](char* place, const wchar_t* path) {
        Narrow(path, place, static_cast<std::size_t>(end - place));
        const std::size_t length = std::strlen(place);
        if (length > 3 && place[length - 1] == '\\') place[length - 1] = 0;  // of a drive it stays
        return place + std::strlen(place);
    };
    char* place = addPath(mElsewhere, directory);
    place = addPath(add(place, " ("), mDirectory);
    add(add(add(place, ": "), reason), ")");
}

}  // namespace ZBase::os
