#include <Base/platform/os/modules/StayLoaded.h>

#include <windows.h>

namespace ZBase::os {

void StayLoaded() {
    HMODULE library = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const wchar_t*>(&StayLoaded), &library);
}

}  // namespace ZBase::os
