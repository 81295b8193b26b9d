#include <Base/frame/Version.h>

namespace ZBase {

const char* GetLibraryVersion() noexcept {
    return ZBASE_VERSION;
}

int GetLibraryVersionNumber() noexcept {
    return ZBASE_VERSION_NUMBER;
}

}  // namespace ZBase
