#pragma once

#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/RefCountCallStackTracer.h>
#include <Base/frame/WideString.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

namespace ZBase {

struct DeleteCallStack {
    void operator()(CallStack* stack) const { stack->Delete(); }
};
using OwnedCallStack = std::unique_ptr<CallStack, DeleteCallStack>;

class RefCountCallStackTracerImp final : public RefCountCallStackTracer {
public:
    RefCountCallStackTracerImp(const unsigned short* label, const char* path);

    void RecordRefCount(void* instance, long refCount) override;
    void ReportLeaks() override;
    void Clear() override;
    void Delete() override;

private:
    struct Change {
        OwnedCallStack stack;
        std::int32_t refCount;  // after the change
    };

    ~RefCountCallStackTracerImp() override;

    std::map<std::uint64_t, std::list<Change>> mInstances;
    std::string mPath;
    WideString mLabel;
};

}  // namespace ZBase
