// SettingsProbe: prints the settings of the buffers as they are after load: block size, growth limit in
// bytes, page size.

#include <Base/ZBase.h>
#include <Base/frame/detail/LibraryState.h>

#include <cstdio>

int main() {
    std::printf("%zu %zu %zu %d\n", ZBase::Buffer::sDefaultBlockSize, ZBase::sGrowLimitBytes,
                ZBase::sPageSize, ZBase::Buffer::sGrowDanamically ? 1 : 0);
}
