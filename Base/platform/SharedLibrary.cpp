#include <Base/frame/WideLiteral.h>
#include <Base/memory/SmartHeapIntegrator.h>
#include <Base/messages/Message.h>
#include <Base/platform/SharedLibrary.h>
#include <Base/platform/detail/SharedLibraryImpl.h>
#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/UnicodeConversions.h>

namespace ZBase {

namespace {

constexpr unsigned int kPathCapacity = 260;
constexpr int kLibraryFailure = 0x12345678;

/// The failure, which wraps the system's code, which wraps the system's `words` if there are any.
Message SystemFailure(const char* textTemplate, const unsigned short* words = nullptr) {
    const int code = static_cast<int>(os::GetLastCode());
    Message failure;
    if (words != nullptr && *words != 0) {
        failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, -1);
        failure.SetMessage(words);
    }
    failure.WrapBy(MESSAGE_DOMAIN_WIN32_API, code, nullptr);
    failure.WrapBy(MESSAGE_DOMAIN_SERVER, kLibraryFailure, textTemplate);
    return failure;
}

}  // namespace

ReturnWString SharedLibraryImpl::GetDecoratedLibraryName(const unsigned short* name, bool) {
    WideString decorated(name);
    if (decorated.find('.') == WideString::npos) decorated += os::ComponentEnding();
    return ReturnWString(decorated.c_str());
}

SharedLibraryImpl::SharedLibraryImpl(const unsigned short* name, bool isComponent)
    : mFileName(GetDecoratedLibraryName(name, isComponent).c_str()),
      mNarrowFileName(WideCharToUTF8(mFileName.c_str(), false).c_str()) {
    std::basic_string<unsigned short> words;
    mModule = os::LoadModule(mFileName.c_str(), words);
    if (mModule == nullptr) {
        Message failure = SystemFailure("Failed to dynamically load library '%1'.", words.c_str());
        failure << name;
        throw failure;
    }
    SmartHeapIntegrator::MemPatchProcess();
}

SharedLibraryImpl::~SharedLibraryImpl() {
    mInitialiser.Reset();
    if (!mDismissed) os::FreeModule(mModule);
}

void* SharedLibraryImpl::GetFunctionAddress(const unsigned short* name) {
    Message failure;
    void* address = static_cast<SharedLibrary*>(this)->GetFunctionAddressOrNULL(name, &failure);
    if (address == nullptr) throw failure;
    return address;
}

void* SharedLibraryImpl::GetFunctionAddressOrNULL(const unsigned short* name, Message* message) {
    const ReturnString narrow = WideCharToASCII(name == nullptr ? ""_w : name, false);
    void* address = os::FindFunction(mModule, narrow.c_str());
    const bool isFound = address != nullptr || os::GetLastCode() == 0;  // an exported symbol may be 0
    if (!isFound && message != nullptr) {
        Message failure = SystemFailure("Failed to look up function '%1' in library '%2'.");
        failure << narrow.c_str() << mNarrowFileName.c_str();
        message->PrependBy(failure);
    }
    return address;
}

ReturnWString SharedLibraryImpl::GetFilePath() {
    unsigned short path[kPathCapacity]{};
    if (os::GetModulePath(mModule, path, kPathCapacity) == 0) {
        Message failure = SystemFailure("Failed to determine filename of library '%1'.");
        failure << mNarrowFileName.c_str();
        throw failure;
    }
    return ReturnWString(path);
}

void SharedLibraryImpl::Dismiss() {
    mDismissed = true;
}

void SharedLibraryImpl::ZENTInitialize() {
    try {
        const auto getInitialiser =
            reinterpret_cast<ReferenceCounted* (*)()>(GetFunctionAddress("GetZENTDLLInitializer"_w));
        ReferenceCounted* initialiser = getInitialiser();
        if (initialiser != mInitialiser.Get()) {
            mInitialiser.Reset();  // first, and where its exceptions are caught
            mInitialiser = initialiser;
        }
    } catch (const Message&) {
        // The initialiser is optional.
    }
}

ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> LoadSharedLibrary(const unsigned short* name) {
    return ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>>(
        new SharedLibraryImpl(name == nullptr ? ""_w : name, true));
}

ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> Load3rdPartySharedLibrary(const unsigned short* name) {
    return ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>>(
        new SharedLibraryImpl(name == nullptr ? ""_w : name, false));
}

}  // namespace ZBase
