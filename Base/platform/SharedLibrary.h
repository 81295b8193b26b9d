#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/DeleteC.h>
#include <Base/frame/ReturnPtr.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

class Message;

/// A component that was loaded at run time. It stays loaded for as long as the object lives. Every failure is
/// a `Message` of domain 300 that names the library, over one of domain 100 with the system code as id; under
/// that of a load are the loader's own words, which tell what was missing.
class ZBASE_API SharedLibrary {
public:
    /// Gives the object of the initialiser back and, unless it was dismissed, unloads the library.
    virtual ~SharedLibrary() = default;

    /// The address of a function, or of anything else that the library itself exports: data, data of the
    /// calling thread, a number. Never null: throws a `Message` when the library does not export it, an empty
    /// one when what it exports is the number 0, and `StringConversionException` for a name beyond ASCII.
    virtual void* GetFunctionAddress(const unsigned short* name) = 0;

    /// The same, with null in place of the `Message`, which is put in front of `*message` unless that is
    /// null.
    virtual void* GetFunctionAddressOrNULL(const unsigned short* name, Message* message) = 0;

    /// The path that the library was loaded from, cut to 259 units. Throws a `Message`.
    virtual ReturnWString GetFilePath() = 0;

    /// Leaves the library in the process for good when this object goes. Can't be undone.
    virtual void Dismiss() = 0;

    /// Calls the library's `GetZENTDLLInitializer()` and holds a reference to the `ReferenceCounted` object
    /// that it gives, in place of the one that was held. Does nothing when the library has no such function,
    /// or a `Message` is thrown in it; anything else that it throws passes through.
    virtual void ZENTInitialize() = 0;
};

/// Load a library by its file name. One that is damaged or cut off, or that needs such a one, is refused with
/// the system code 193, as far as its headers and tables tell. The file must not be written to while it is
/// loaded: its code is read from there when it is first run. Put a new version in its place by renaming.
///
/// A bare name is looked for where the system's loader looks, and that is not beside the program by itself.
/// For components that lie there the program is linked with an old-style run path, on Linux by
/// `-Wl,--disable-new-dtags,-rpath,'$ORIGIN'` (a new-style one serves the program's own libraries only), or
/// gives their path.
///
/// A name without any "." in it, path included, is completed by the ending of the platform, "_64.dll" or
/// "_64.so". The two do the same. Throw a `Message` when it can't be loaded, and `StringConversionException`
/// for a name that is no proper UTF-16.
ZBASE_API ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> LoadSharedLibrary(const unsigned short* name);
ZBASE_API ReturnPtr<SharedLibrary, DeleteC<SharedLibrary>> Load3rdPartySharedLibrary(
    const unsigned short* name);

}  // namespace ZBase
