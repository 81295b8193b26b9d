#include "tests/scripted/ScriptedPages.h"

#include <Base/platform/os/memory/Pages.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace test {

std::vector<PageCall> Pages::Calls(const std::string& name) const {
    std::vector<PageCall> found;
    for (const PageCall& call : calls)
        if (call.name == name) found.push_back(call);
    return found;
}

}  // namespace test

namespace {

bool Answer(const char* name, const void* address, std::size_t size, int& failing) {
    test::gPages.calls.push_back({name, address, size});
    return failing < 0 || failing-- != 0;
}

}  // namespace

namespace ZBase::os {

std::size_t PageSize() {
    return test::kScriptedPageSize;
}

void* AllocatePages(std::size_t size) {
    if (!Answer("allocate", nullptr, size, test::gPages.failingAllocation)) return nullptr;
    void* const memory = ::operator new(size, std::align_val_t{test::kScriptedPageSize}, std::nothrow);
    if (memory == nullptr) return nullptr;
    ++test::gPages.held;
    return std::memset(memory, 0, size);
}

bool ReleasePages(void* address) {
    test::gPages.calls.push_back({"release", address, 0});
    --test::gPages.held;
    ::operator delete(address, std::align_val_t{test::kScriptedPageSize});
    return true;
}

bool ProtectPages(void* address, std::size_t size) {
    return Answer("protect", address, size, test::gPages.failingProtection);
}

bool UnprotectPages(void* address, std::size_t size) {
    return Answer("unprotect", address, size, test::gPages.failingUnprotection);
}

bool DecommitPages(void* address, std::size_t size) {
    return Answer("decommit", address, size, test::gPages.failingDecommit);
}

void ClearMemory(void* address, std::size_t size) {
    std::memset(address, 0, size);
}

}  // namespace ZBase::os
