#pragma once

#include <Base/frame/NoCopy.h>
#include <Base/frame/ReferenceCounted.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/frame/WideString.h>
#include <Base/platform/SharedLibrary.h>
#include <Base/platform/os/modules/Modules.h>

#include <string>

namespace ZBase {

class SharedLibraryImpl final : public virtual SharedLibrary, private NoCopy {
public:
    SharedLibraryImpl(const unsigned short* name, bool isComponent);
    ~SharedLibraryImpl() override;

    void* GetFunctionAddress(const unsigned short* name) override;
    void* GetFunctionAddressOrNULL(const unsigned short* name, Message* message) override;
    ReturnWString GetFilePath() override;
    void Dismiss() override;
    void ZENTInitialize() override;

private:
    // Components and other libraries get the same suffix; kept for callers that pass either.
    static ReturnWString GetDecoratedLibraryName(const unsigned short* name, bool isComponent);

    os::Module mModule = nullptr;
    WideString mFileName;
    std::string mNarrowFileName;
    bool mDismissed = false;
    SmartPtrI<ReferenceCounted> mInitialiser;  // its code is in the module
};

}  // namespace ZBase
