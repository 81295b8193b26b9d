#include <Base/ZBase.h>

#include <TestPlaces.h>

#include <cstdlib>
#include <fstream>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"
#include "tests/support/TemporaryFile.h"
#include "tests/support/linux/HostileImage.h"

class ZBase::AppGlobalEvent {};

namespace test {

namespace {

using namespace ZBase::Literals;

template <class Run>
Row LongText(std::string name, std::vector<std::string_view> covers, std::size_t length, const char* filling,
             Run run) {
    return {std::move(name), std::move(covers), length, [filling, run](std::size_t of) {
                return Over(ToWide(Repeated(filling, of)),
                            [run](const ZBase::WideString& text) { Try([&] { run(text); }); });
            }};
}

template <class Run>
Row Times(std::string name, std::vector<std::string_view> covers, std::size_t length, Run run) {
    return {std::move(name), std::move(covers), length, [run](std::size_t count) {
                return Job([run, count] {
                    for (std::size_t i = 0; i != count; ++i) run(i);
                });
            }};
}

void AddFrame(std::vector<Row>& rows) {
    rows.push_back(LongText("a long result",
                            {"ZBase::ReturnString::*", "ZBase::ReturnWString::*", "ZBase::ReturnUString::*"},
                            16'384, "x", [](const ZBase::WideString& text) {
                                const ZBase::ReturnWString wide(text.c_str());
                                const ZBase::ReturnUString units(text.size(), text.c_str());
                                const ZBase::ReturnString narrow(std::string(text.size(), 'x').c_str());
                                const ZBase::ReturnString other(text.size(), nullptr);
                                const ZBase::ReturnWString taken(wide);
                                static_cast<void>(taken.GetLength() + narrow.GetLength() + units.GetLength());
                            }));
    rows.push_back({"a wide string, unit by unit", {}, 4096, [](std::size_t length) {
                        return Job([length] {
                            ZBase::WideString text;
                            for (std::size_t i = 0; i != length; ++i) text += 'x';
                            ZBase::WideString other(text);
                            other += text;
                        });
                    }});
    rows.push_back(LongText("a container path", {"ZBase::SetContainerPath", "ZBase::GetContainerPath"}, 8192,
                            "x",
                            [](const ZBase::WideString& text) {
                                ZBase::SetContainerPath(std::string(text.begin(), text.end()).c_str());
                                ZBase::GetContainerPath();
                                ZBase::SetContainerPath("");
                            })
                       .Apart());
    rows.push_back(LongText("a long variable",
                            {"ZBase::SetEnvironmentVariable", "ZBase::GetEnvironmentVariableOrNULL",
                             "ZBase::ReadEnvironmentVariable"},
                            8192, "x", [](const ZBase::WideString& text) {
                                ZBase::SetEnvironmentVariable("ZBASE_GROWTH"_w, text.c_str());
                                ZBase::GetEnvironmentVariableOrNULL("ZBASE_GROWTH"_w);
                                ZBase::ReadEnvironmentVariable("ZBASE_GROWTH"_w);
                                ZBase::SetEnvironmentVariable("ZBASE_GROWTH"_w, nullptr);
                            }));
    rows.push_back(LongText("a long name of a variable", {}, 8192, "x", [](const ZBase::WideString& text) {
        ZBase::GetEnvironmentVariableOrNULL(text.c_str());
        ZBase::ReadEnvironmentVariable(text.c_str());
    }));
    rows.push_back({"a variable of a long number",
                    {"ZBase::GetNumericEnvironmentVariable"},
                    8192,
                    [](std::size_t length) {
                        setenv("ZBASE_GROWTH", std::string(length, '1').c_str(), 1);
                        return Job([] { ZBase::GetNumericEnvironmentVariable("ZBASE_GROWTH", 3); });
                    }});
    rows.push_back(Row(Times("variables in number", {}, 32,
                             [](std::size_t i) {
                                 ZBase::SetEnvironmentVariable(ToWide(Numbered("ZBASE_GROWTH_", i)).c_str(),
                                                               "value"_w);
                             }))
                       .May(2, "the C library looks through all variables for each")
                       .Apart());
}

void AddHost(std::vector<Row>& rows) {
    rows.push_back(LongText("a long text for a debugger", {"ZBase::OutputDebugString"}, 8192, "x",
                            [](const ZBase::WideString& text) {
                                ZBase::OutputDebugString(text.c_str());
                                ZBase::OutputDebugString(std::string(text.begin(), text.end()).c_str());
                            }));
    constexpr std::pair<const char*, const char*> kFillings[] = {
        {"letters", "x"}, {"numbers and dots", "1."}, {"colons", "::"}, {"control characters", "\x01"}};
    for (const auto& [kind, filling] : kFillings) {
        rows.push_back(LongText(std::string("a long name of a host of ") + kind,
                                {"ZBase::IPAddress2MachineName", "ZBase::MachineName2IPAddress",
                                 "ZBase::MachineName2IPv4Address", "ZBase::IsValidIPAddress"},
                                4096, filling, [](const ZBase::WideString& text) {
                                    ZBase::WideString result;
                                    ZBase::IPAddress2MachineName(text);
                                    ZBase::MachineName2IPAddress(text);
                                    ZBase::MachineName2IPv4Address(text, result);
                                    ZBase::IsValidIPAddress(std::string(text.begin(), text.end()).c_str());
                                }));
        rows.push_back(
            LongText(std::string("a long URL of ") + kind, {"ZBase::ConvertServerNameURL2IpAddrURL"}, 4096,
                     filling, [](const ZBase::WideString& text) {
                         ZBase::WideString result;
                         ZBase::ConvertServerNameURL2IpAddrURL(ToWide("http://127.0.0.1:80/") + text, result);
                         ZBase::ConvertServerNameURL2IpAddrURL(text, result);
                     }));
        rows.push_back(
            LongText(std::string("a long name of a component of ") + kind,
                     {"ZBase::LoadSharedLibrary", "ZBase::Load3rdPartySharedLibrary"}, 4096, filling,
                     [](const ZBase::WideString& text) { ZBase::LoadSharedLibrary(text.c_str()); }));
    }
    const ZBase::ReturnWString path = ZBase::UTF8ToWideChar(ZBASE_COMPONENTS_DIR "/Component_64.so", false);
    const Units name(path.c_str());
    rows.push_back(Times("look-ups in a component", {}, 64, [name](std::size_t) {
        static const auto sLibrary = ZBase::LoadSharedLibrary(name.c_str());
        sLibrary->GetFunctionAddress("AddOne"_w);
        sLibrary->GetFunctionAddressOrNULL("Nothing"_w, nullptr);
    }));
    rows.push_back(
        LongText("a long name in a component", {}, 4096, "x", [name](const ZBase::WideString& text) {
            static const auto sLibrary = ZBase::LoadSharedLibrary(name.c_str());
            ZBase::Message message;
            sLibrary->GetFunctionAddressOrNULL(text.c_str(), &message);
            sLibrary->GetFunctionAddress(text.c_str());
        }));
}

// Images that are refused, each with much of one thing.

struct ImageKind {
    const char* name;
    void (*fill)(HostileImage& image, std::size_t count);
    bool hasEnd;  // of its dynamic entries, without which it is refused before they are used
};

const ImageKind kImages[] = {
    {"needs of one long name",
     [](HostileImage& image, std::size_t count) { image.NeedOneLongName(count, 64 * count); }, true},
    {"entries without an end",
     [](HostileImage& image, std::size_t count) { image.NeedOneLongName(count, 1); }, false},
    {"sections over the same octets",
     [](HostileImage& image, std::size_t count) { image.FillOneRange(count, 64 * count); }, false},
    {"segments and sections", [](HostileImage& image, std::size_t count) { image.AddSections(count); },
     false},
};

void AddImages(std::vector<Row>& rows) {
    for (const ImageKind& kind : kImages) {
        rows.push_back({std::string("a component of ") + kind.name,
                        {"ZBase::LoadSharedLibrary"},
                        256,
                        [&kind](std::size_t count) {
                            const auto file = std::make_shared<TemporaryFile>();
                            HostileImage image;
                            kind.fill(image, count);
                            std::ofstream(file->Path(), std::ios::binary) << image.Octets(kind.hasEnd);
                            return Job([file] {
                                // A name without a dot would be completed.
                                const Units name = ToUnits("/." + std::string(file->Path()));
                                Try([&] { ZBase::LoadSharedLibrary(name.c_str()); });
                            });
                        }});
    }
}

class Listener final : public ZBase::AppGlobalEventCallback {
public:
    void OnEvent(ZBase::AppGlobalEvent&) override {}
};

void AddSwitches(std::vector<Row>& rows) {
    // Features stay to the end of a process.
    rows.push_back(Times("features in number",
                         {"ZBase::SetFeatureEnabled", "ZBase::IsFeatureEnabled", "ZBase::FeatureFlagMgr::*",
                          "ZBase::NotifyFeatureFlagMgrInitialized"},
                         256,
                         [](std::size_t i) {
                             const ZBase::WideString name = ToWide(Numbered("Growth/Feature", i));
                             ZBase::SetFeatureEnabled(name.c_str(), i % 2 == 0);
                             if (i == 0) ZBase::NotifyFeatureFlagMgrInitialized();
                             ZBase::IsFeatureEnabled(name.c_str());
                         })
                       .Apart());
    rows.push_back(LongText("a feature with a long name", {}, 4096, "x", [](const ZBase::WideString& text) {
                       ZBase::NotifyFeatureFlagMgrInitialized();
                       ZBase::SetFeatureEnabled(text.c_str(), true);
                       ZBase::IsFeatureEnabled(text.c_str());
                   }).Apart());
    rows.push_back(Times("events", {"ZBase::AppGlobalEventReporter::*"}, 1024, [](std::size_t) {
        static Listener sListener;
        static const bool sIsRegistered = (ZBase::AppGlobalEventReporter::RegisterCallback(&sListener), true);
        ZBase::AppGlobalEvent event;
        if (sIsRegistered) ZBase::AppGlobalEventReporter::Report(event);
    }));
    rows.push_back(
        {"measurements of a total", {"ZBase::TotalTimer::*", "ZBase::Timer::*"}, 256, [](std::size_t count) {
             return Job([count] {
                 ZBase::TotalTimer total;
                 for (std::size_t i = 0; i != count; ++i) {
                     const ZBase::TotalTimer::Timer one(total);
                     const ZBase::TotalTimer::Timer3 three(total, total, total);
                     total.GetAverageInSeconds();
                 }
             });
         }});
    rows.push_back({"identifiers in number", {"ZBase::CreateGUID"}, 64, [](std::size_t count) {
                        return Job([count] {
                            for (std::size_t i = 0; i != count; ++i) ZBase::GUID().ToWString();
                        });
                    }});
}

}  // namespace

std::vector<Row> PlatformRows() {
    std::vector<Row> rows;
    AddFrame(rows);
    AddHost(rows);
    AddImages(rows);
    AddSwitches(rows);
    return rows;
}

const std::vector<WithoutLength>& NamesWithoutLength() {
    static const std::vector<WithoutLength> sNames = {
        {"a value of a fixed size becomes a text, or the other way",
         {"ZBase::ToDecimal*", "ZBase::ToHex*", "ZBase::ShortestText", "ZBase::GetHumanReadableSize",
          "ZBase::WideChar2String", "ZBase::Char2Hex", "ZBase::Guid2String", "ZBase::Guid2MSString",
          "ZBase::Guid2MSUniString", "ZBase::GUID::*", "ZBase::CompareGUID", "ZBase::Udid2String",
          "ZBase::UTF8IsLeadingByte", "ZBase::UTF8TotalBytes", "ZBase::ToString(unsigned short)"}},
        {"a number of the system has one description",
         {"ZBase::GetSystemErrorDescription", "ZBase::IsSystemError",
          "ZBase::GetWin32APIErrorDescriptionOrNULL", "ZBase::GetStandardCLibraryError*",
          "ZBase::GetWin32ExceptionSymbol*"}},
        {"a fact of host, process or library",
         {"ZBase::GetComputerName",
          "ZBase::GetComputerFullName",
          "ZBase::GetCurrentLogin",
          "ZBase::GetCurrentProcessID",
          "ZBase::GetCurrentProcessName",
          "ZBase::GetCurrentThreadID",
          "ZBase::GetCurrentThreadIDNative",
          "ZBase::GetLastError",
          "ZBase::GetLibraryVersion",
          "ZBase::GetLibraryVersionNumber",
          "ZBase::GetModuleFileNameByAddressWithinModule",
          "ZBase::GetNumberOfSystemProcessors",
          "ZBase::GetPrivateBytes",
          "ZBase::GetProcessLocale",
          "ZBase::GetProcessName",
          "ZBase::GetPseudoRandomInt32",
          "ZBase::GetSymPageSize",
          "ZBase::GetUniqueMachineID",
          "ZBase::GetUsableMemory",
          "ZBase::GetUsableProcessors",
          "ZBase::IsProcessAlive",
          "ZBase::PauseCurrentProcess",
          "ZBase::Sleep",
          "ZBase::YieldToAnotherThread",
          "ZBase::IsFeatureFlagManagerInitialized",
          "ZBase::Buffer::GetDefaultBufferImplementation"}},
        {"a constant or a variable",
         {"ZBase::Buffer::s*", "ZBase::MESSAGE_DOMAIN_*", "ZBase::Message::MIN_SIZE", "ZBase::UDID_NULL",
          "ZBase::UNICODE_BYTE_ORDER_MARK", "ZBase::gDbgHelpBuilder"}},
        {"a function is set",
         {"ZBase::SetCallBackVirtual*", "ZBase::UnSetCallBackVirtual*", "ZBase::InstallTerminateHandler",
          "ZBase::SetExceptionTranslator"}},
        {"the modules of the process, whose number is not chosen by who calls",
         {"ZBase::ModuleInfo::*", "ZBase::DbgHelpBuilder::*", "ZBase::DbgHelpFunctions::*",
          "ZBase::InitializeDBGHelpBuilder"}},
        {"the threads of the process, each stopped by itself and by the clock", {"ZBase::DumpAllStacks"}},
        {"a handler is installed, or a dump made of the whole process",
         {"ZBase::InstallCrashHandler", "ZBase::InstallCrashStack", "ZBase::CreateDump"}},
        {"an outside heap is asked", {"ZBase::SmartHeapIntegrator::*"}},
        {"a piece of a buffer, whose allocations have rows",
         {
             "ZBase::BufferResource::*",
             "operator new",
             "operator delete",
         }},
    };
    return sNames;
}

}  // namespace test
