#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Finds leaks of reference-counted objects: keeps the stack of every change of a count until the count is 0.
/// Objects left at its end are reported with all stacks that changed their count. Destroyed by `Delete`.
class ZBASE_API RefCountCallStackTracer {
public:
    RefCountCallStackTracer();
    RefCountCallStackTracer(const RefCountCallStackTracer&);
    RefCountCallStackTracer& operator=(const RefCountCallStackTracer&);

    /// Records that the count of an object has become `refCount`; 0 drops the object's history. Any thread
    /// may call it. Throws `std::bad_alloc`.
    virtual void RecordRefCount(void* instance, long refCount) = 0;

    /// Appends all objects whose count is not 0 to the report file and sends them to the debugger; no effect
    /// if the file can't be opened. The six innermost lines of each stack, the tracer's own and its caller's,
    /// are left out. Call it, like `Clear` and `Delete`, when no thread records any more.
    virtual void ReportLeaks() = 0;

    /// Forgets all objects.
    virtual void Clear() = 0;

    /// Reports and destroys the tracer.
    virtual void Delete() = 0;

protected:
    virtual ~RefCountCallStackTracer();
};

/// A tracer whose lines carry `label`, and which reports into the file at `path`, created at once. Null if it
/// can't be allocated.
ZBASE_API RefCountCallStackTracer* CreateRefCountCallStackTracer(const unsigned short* label,
                                                                 const char* path);

/// Appends the current stack, without its five innermost lines, to a file under a label. No effect if the
/// file can't be opened.
ZBASE_API void TraceCallStack(const char* path, const unsigned short* label);

}  // namespace ZBase
