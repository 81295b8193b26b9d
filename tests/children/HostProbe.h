#pragma once

// Calls the library for one question and prints the result in UTF-8.

#include <Base/ZBase.h>

#include <cstdio>
#include <string>

namespace probe {

inline std::string Utf8(const unsigned short* text) {
    return ZBase::WideCharToUTF8(text, true).c_str();
}

inline std::string Answer(const std::string& question, const ZBase::WideString& argument) {
    const auto withCode = [&argument](auto function) {
        ZBase::WideString out;
        const int code = function(argument, out);
        const std::string end = !out.empty() && out.back() == 0 ? "+0" : "";
        return std::to_string(code) + ' ' + Utf8(out.c_str()) + end;
    };
    if (question == "ip2name") return Utf8(ZBase::IPAddress2MachineName(argument).c_str());
    if (question == "name2ip") return Utf8(ZBase::MachineName2IPAddress(argument).c_str());
    if (question == "name2ipv4") return withCode(ZBase::MachineName2IPv4Address);
    if (question == "url") return withCode(ZBase::ConvertServerNameURL2IpAddrURL);
    if (question == "computer") return Utf8(ZBase::GetComputerName().c_str());
    if (question == "full") return Utf8(ZBase::GetComputerFullName().c_str());
    if (question == "machine") return ZBase::ToHexUpperString(ZBase::GetUniqueMachineID()).c_str();
    if (question == "command") return Utf8(ZBase::GetCurrentProcessName().c_str());
    if (question == "removed") {  // its own file, while it runs
        const std::string own = Utf8(
            ZBase::GetModuleFileNameByAddressWithinModule(reinterpret_cast<const void*>(&Answer)).c_str());
        std::remove(own.c_str());
        return Utf8(ZBase::GetProcessName(ZBase::GetCurrentProcessID()).c_str()) + ' ' +
               Utf8(ZBase::GetModuleFileNameByAddressWithinModule(reinterpret_cast<const void*>(&Answer))
                        .c_str());
    }
    return "no such question";
}

inline int Run(int argc, char** argv) {
    if (argc < 2) return 2;
    const ZBase::ReturnWString argument = ZBase::UTF8ToWideChar(argc > 2 ? argv[2] : "", true);
    try {
        std::fputs(Answer(argv[1], argument.c_str()).c_str(), stdout);
    } catch (const ZBase::Message& failure) {
        std::printf("thrown: %s", Utf8(failure.GetMessage()).c_str());
    }
    return 0;
}

}  // namespace probe
