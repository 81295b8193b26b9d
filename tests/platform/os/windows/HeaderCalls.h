// Included behind <windows.h> and the library's headers, in either order: what a program calls by names that
// are macros of the system's too. No guard: each source has its own.

namespace {

struct Calls {
    std::string formatted;
    std::string domainOfWide;
    std::size_t computerName;
    bool isSameIdentifier;
    std::string number;
};

inline Calls MakeCalls() {
    ZBase::Message message(7, 8, "a%1");
    message << std::size_t{1} << 2l << 3ul;
    ZBase::OutputDebugString("said by a test");
    ::GUID system{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    const ZBase::GUID identifier(system);
    const ZBase::ReturnWString name = ZBase::GetComputerName();
    std::size_t length = 0;
    while (name.c_str()[length] != 0) ++length;
    const unsigned short* const kept = message.GetMessage();
    std::string wide;
    for (const unsigned short* unit = kept; unit != nullptr && *unit != 0; ++unit)
        wide += static_cast<char>(*unit);
    return {ZBase::FormatMessage(message, 0).c_str(), wide, length, identifier == system,
            message.GetParameter(0)};
}

}  // namespace
