#include <Base/crash/detail/CrashKeysBlock.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/Pages.h>
#include <Base/platform/os/ReportSender.h>

#include <cstring>

namespace ZBase::detail {

namespace {

constexpr unsigned int kUploadSeconds = 60;
constexpr char kHanging[] = "reason\0hanging";

// Text in pages of its own.
struct Pages {
    char* text = nullptr;  // owned
    std::size_t capacity = 0;
};

// Two blocks take turns, so that a crash finds one that is whole.
Pages sKeys[2];
std::atomic<CrashKeysBlock*> spKeys = nullptr;  // the one that counts
Pages sServerUrl;
Pages sServerProdUrl;

bool Grow(Pages& pages, std::size_t size) {
    if (pages.capacity >= size) return true;
    auto* const text = static_cast<char*>(os::AllocatePages(2 * size));
    if (text == nullptr) return false;
    if (pages.text != nullptr) os::ReleasePages(pages.text);
    pages = {text, 2 * size};
    return true;
}

std::string Fields(const CrashConfigTable& keys) {
    std::string fields;
    for (const auto& [name, value] : keys) {
        fields.append(ReportText(name)).push_back('\0');
        fields.append(ReportText(value)).push_back('\0');
    }
    return fields;
}

bool IsFirst(const CrashKeysBlock* keys) {
    return keys == reinterpret_cast<const CrashKeysBlock*>(sKeys[0].text);
}

void PrepareKeys() {
    const CrashKeysBlock* const present = spKeys;
    Pages& pages = sKeys[IsFirst(present) ? 1 : 0];
    const std::string fields = Fields(gCrashKeys);
    if (!Grow(pages, sizeof(CrashKeysBlock) + fields.size())) return;
    auto* const block = reinterpret_cast<CrashKeysBlock*>(pages.text);
    std::memset(block, 0, sizeof *block);
    std::memcpy(block + 1, fields.data(), fields.size());
    block->size = fields.size();
    block->production = gCustomerDsi ? 1 : 0;
    block->sequence = present == nullptr ? 1 : present->sequence + 1;
    std::memcpy(block->magic, kCrashKeysMagic, sizeof block->magic);
    spKeys = block;
}

void PrepareUrl(Pages& pages, const unsigned short* key) {
    const auto found = gCrashConfig.find(key);
    const std::string url = found == gCrashConfig.end() ? "" : ReportText(found->second);
    if (Grow(pages, url.size() + 1)) std::memcpy(pages.text, url.c_str(), url.size() + 1);
}

}  // namespace

void PrepareCrashReport() {
    PrepareKeys();
    PrepareUrl(sServerUrl, "ServerURL"_w);
    PrepareUrl(sServerProdUrl, "ServerProdURL"_w);
}

os::DumpMemory BeginReport(bool onDemand) {
    static const CrashKeysBlock sNone{};
    CrashKeysBlock* const keys = spKeys;
    if (keys == nullptr) return {&sNone, sizeof sNone};
    keys->hanging = onDemand ? 1 : 0;
    return {keys, sizeof *keys + keys->size};
}

ReportResult SendPreparedReport(const os::TriedDump& dump) {
    const char* const url = gCustomerDsi ? sServerProdUrl.text : sServerUrl.text;
    const CrashKeysBlock* const keys = spKeys;
    if (url == nullptr || keys == nullptr) return RESULT_FAILED;
    const os::ReportPiece pieces[] = {
        {url, std::strlen(url) + 1},
        {dump.path, std::strlen(dump.path) + 1},
        {kHanging, dump.onDemand ? sizeof kHanging : 0},  // a crash key of that name comes later and wins
        {reinterpret_cast<const char*>(keys + 1), keys->size},
    };
    const char answer = os::RunReportSender(pieces, std::size(pieces), kUploadSeconds);
    return answer >= '0' && answer <= '3' ? static_cast<ReportResult>(answer - '0') : RESULT_FAILED;
}

}  // namespace ZBase::detail
