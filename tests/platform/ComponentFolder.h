#pragma once

#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/components/ComponentLog.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WideText.h"

namespace test {

#if defined(_WIN32)
inline constexpr char kComponentFile[] = "Component_64.dll";
#else
inline constexpr char kComponentFile[] = "Component_64.so";
#endif
inline const std::filesystem::path kComponents = std::filesystem::path(ZBASE_COMPONENTS_DIR).make_preferred();

// Never destroyed: a library that stays is unloaded after everything else.
inline std::vector<std::string>& gLog = *new std::vector<std::string>;

inline Units ToName(const std::filesystem::path& path) {
    const std::u16string name = path.u16string();
    return Units(name.begin(), name.end());
}

inline auto Load(const std::filesystem::path& path) {
    return ZBase::LoadSharedLibrary(ToName(path).c_str());
}

template <class Function>
Function* Find(ZBase::SharedLibrary& library, const unsigned short* name) {
    return reinterpret_cast<Function*>(library.GetFunctionAddress(name));
}

inline void ExpectLog(std::initializer_list<std::string> expected) {
    EXPECT_EQ(gLog, std::vector<std::string>(expected));
}

/// The system code under the failure to load `path`.
inline int LoadFailure(const std::filesystem::path& path) {
    using ZBase::Message;
    try {
        Load(path);
    } catch (const Message& failure) {
        EXPECT_EQ(failure.GetDomain(), 300);
        EXPECT_EQ(failure.GetID(), 0x12345678);
        EXPECT_STREQ(failure.GetTemplate(), "Failed to dynamically load library '%1'.");
        const std::u8string name = path.u8string();
        EXPECT_STREQ(failure.GetParameter(0), std::string(name.begin(), name.end()).c_str());
        const Message* inner = failure.GetLowerLevelMessageOrNULL();
        EXPECT_NE(inner, nullptr);
        EXPECT_EQ(inner->GetDomain(), 100);
        return inner->GetID();
    }
    ADD_FAILURE() << path << " was loaded";
    return 0;
}

/// A component in a folder of its own, so that each test has its own copy. The folder's name has no dot.
class ComponentFolder : public ScratchFolder {
protected:
    ComponentFolder() { gLog.clear(); }

    std::filesystem::path Copy(const std::string& module, const std::filesystem::path& name) const {
        std::filesystem::copy_file(kComponents / module, mFolder / name);
        return mFolder / name;
    }

    // Loads a copy of the component and has it log its calls.
    auto LoadComponent() const {
        using namespace ZBase::Literals;
        Copy(kComponentFile, kComponentFile);
        auto library = Load(mFolder / "Component");
        Find<void(component::Log)>(*library, "SetLog"_w)([](const char* what) { gLog.emplace_back(what); });
        return library;
    }
};

}  // namespace test
