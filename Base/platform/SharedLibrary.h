#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/DeleteC.h>
#include <Base/frame/ReturnPtr.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

class Message;

/// A component that was loaded at run time. It stays loaded as long as the object lives. Every failure is a
/// `Message` of domain 300 that names the library, which wraps one of domain 100 with the system code as id;
/// that of a load wraps the loader's own text, which names what was missing.
class ZBASE_API SharedLibrary {
public:
    /// Releases the object of the initialiser and, unless it was dismissed, unloads the library.
    virtual ~SharedLibrary() = default;

    /// The address of a function, or of any other symbol that the library itself exports: data, thread-local
    /// data of the calling thread, an absolute symbol. Never null: throws a `Message` when the library does
    /// not export it, an empty one for an absolute symbol of 0, and `StringConversionException` for a name
    /// beyond ASCII.
    virtual void* GetFunctionAddress(const unsigned short* name) = 0;

    /// The same, but returns null in place of the `Message`, which is put in front of `*message` unless that
    /// is null.
    virtual void* GetFunctionAddressOrNULL(const unsigned short* name, Message* message) = 0;

    /// The path that the library was loaded from, cut to 259 units. Throws a `Message`.
    virtual ReturnWString GetFilePath() = 0;

    /// Keeps the library in the process for good when this object ends. Can't be undone.
    virtual void Dismiss() = 0;

    /// Calls the library's `GetZENTDLLInitializer()` and holds a reference to the `ReferenceCounted` object
    /// that it returns, replacing an earlier one. No effect if the library has no such function, or it throws
    /// a `Message`; other exceptions of it pass through.
    virtual void ZENTInitialize() = 0;
};

/// Load a library by its file name. If its headers or tables, or those of a dependency, show that it is
/// damaged or truncated, it is refused with the system code 193. The file must not be written to while it is
/// loaded: its code is read from there when it is first run. Install a new version by renaming.
///
/// A bare name is looked for where the system's loader looks, which does not include the program's directory.
/// For components there link the program with an old-style run path, on Linux by
/// `-Wl,--disable-new-dtags,-rpath,'$ORIGIN'` (a new-style one is used for the program's own libraries only),
/// or pass their path.
///
/// A name without any ".", path included, is completed by the suffix of the platform, "_64.dll" or "_64.so".
/// The two do the same. Throw a `Message` when it can't be loaded, and `StringConversionException` for a name
/// that is not proper UTF-16.
ZBASE_API ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> LoadSharedLibrary(const unsigned short* name);
ZBASE_API ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> Load3rdPartySharedLibrary(
    const unsigned short* name);

}  // namespace ZBase
