#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <elf.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WideText.h"

// Damaged images. The loader maps a file and trusts it, so each of these could end the process.

namespace {

namespace fs = std::filesystem;

const fs::path kComponents = ZBASE_COMPONENTS_DIR;

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// 0 if the library could be loaded, otherwise the system code.
int LoadCode(const std::string& path) {
    try {
        ZBase::LoadSharedLibrary(test::Units(ZBase::UTF8ToWideChar(path.c_str(), false).c_str()).c_str());
        return 0;
    } catch (const ZBase::Message& failure) {
        const ZBase::Message* inner = failure.GetLowerLevelMessageOrNULL();
        return inner == nullptr ? -1 : inner->GetID();
    }
}

class DamagedComponent : public test::ScratchFolder {
protected:
    struct Case {
        std::string what;
        std::string content;
    };

    // The results of the cases, in a child. Fails with the case in which the child dies.
    std::set<int> Codes(const std::vector<Case>& cases) const {
        struct Shared {
            std::size_t at;
            int codes[1 << 16];
        };
        void* const memory =
            mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        auto* const shared = static_cast<Shared*>(memory);
        if (memory == MAP_FAILED || cases.size() > std::size(shared->codes)) {
            ADD_FAILURE() << cases.size() << " cases";
            return {};
        }
        const pid_t child = fork();
        if (child == 0) {
            for (shared->at = 0; shared->at != cases.size(); ++shared->at) {
                // Each has a name of its own: writing to a loaded file would change the mapping.
                const std::string file = Write(std::to_string(shared->at) + ".so", cases[shared->at].content);
                shared->codes[shared->at] = LoadCode(file);
                fs::remove(file);
            }
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) {
            ADD_FAILURE() << cases[shared->at].what << " ends the process with status " << status;
        }
        std::set<int> codes(shared->codes, shared->codes + cases.size());
        munmap(memory, sizeof(Shared));
        return codes;
    }

    const std::string mWhole = ReadFile(kComponents / "Component_64.so");
};

TEST_F(DamagedComponent, CutAtEvery256thOctetIsNoValidImage) {
    std::vector<Case> cases;
    for (std::size_t size = 0; size < mWhole.size(); size += 256)
        cases.push_back({"cut at " + std::to_string(size), mWhole.substr(0, size)});
    ASSERT_GT(cases.size(), 50u);
    EXPECT_EQ(Codes(cases), std::set<int>{193});
}

// The loader puts that table onto the stack of the thread that loads.
TEST_F(DamagedComponent, WithATableThatNoSmallStackHoldsIsNoValidImage) {
    std::string content = mWhole;
    content[57] = static_cast<char>(content[57] ^ 0x10);  // 4,096 more segments than there are
    const std::string file = Write("many.so", content);
    const int result = test::InChild([&] {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, 128 << 10);
        struct Work {
            std::string file;
            int code;
        } work{file, 0};
        pthread_t thread{};
        const auto load = [](void* argument) -> void* {
            auto* const own = static_cast<Work*>(argument);
            own->code = LoadCode(own->file);
            return nullptr;
        };
        if (pthread_create(&thread, &attributes, load, &work) != 0) return 1;
        pthread_join(thread, nullptr);
        return work.code == 193 ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DamagedComponent, CutByOneOctetIsNoValidImage) {
    EXPECT_EQ(Codes({{"one less", mWhole.substr(0, mWhole.size() - 1)}}), std::set<int>{193});
    EXPECT_EQ(Codes({{"whole", mWhole}, {"one more", mWhole + "x"}}), std::set<int>{0});
}

TEST_F(DamagedComponent, CutInEveryFieldOfItsHeadersIsNoValidImage) {
    Elf64_Ehdr header{};
    std::memcpy(&header, mWhole.data(), sizeof header);
    const std::size_t end = header.e_phoff + std::size_t{header.e_phnum} * header.e_phentsize;
    ASSERT_LT(end, 4096u);
    std::vector<Case> cases;
    for (std::size_t size = 0; size <= end; size += 2)
        cases.push_back({"cut at " + std::to_string(size), mWhole.substr(0, size)});
    EXPECT_EQ(Codes(cases), std::set<int>{193});
}

// A field that the loader does not read may have any value.
TEST_F(DamagedComponent, WrongOctetInItsHeadersDoesNotEndTheProcess) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer reads what is loaded by itself";
    Elf64_Ehdr header{};
    std::memcpy(&header, mWhole.data(), sizeof header);
    const std::size_t end = header.e_phoff + std::size_t{header.e_phnum} * header.e_phentsize;
    std::vector<Case> cases;
    for (std::size_t at = 0; at != end; ++at) {
        for (const int change : {0x01, 0x10, 0x80, 0xFF}) {
            Case each{"octet " + std::to_string(at) + " changed by " + std::to_string(change), mWhole};
            each.content[at] = static_cast<char>(each.content[at] ^ change);
            cases.push_back(std::move(each));
        }
    }
    for (const int code : Codes(cases)) EXPECT_TRUE(code == 0 || code == 193) << code;
}

// File data after its data segment would replace the zeros that variables begin with.
TEST_F(DamagedComponent, DataThatReachesOverItsZerosIsNoValidImage) {
    Elf64_Ehdr header{};
    std::memcpy(&header, mWhole.data(), sizeof header);
    std::string content = mWhole;
    int changed = 0;
    for (std::size_t at = header.e_phoff; changed == 0 && at < 4096; at += sizeof(Elf64_Phdr)) {
        Elf64_Phdr segment{};
        std::memcpy(&segment, content.data() + at, sizeof segment);
        if (segment.p_type != PT_LOAD || segment.p_filesz == segment.p_memsz) continue;
        segment.p_filesz = segment.p_memsz;
        std::memcpy(content.data() + at, &segment, sizeof segment);
        ++changed;
    }
    ASSERT_EQ(changed, 1);
    EXPECT_EQ(Codes({{"data up to the end of the zeros", content}}), std::set<int>{193});
}

TEST_F(DamagedComponent, ZeroesInPlaceOfAPageAreNotRun) {
    std::vector<Case> cases;
    cases.push_back({"first page", mWhole});
    cases.back().content.replace(0, 4096, 4096, 0);
    cases.push_back({"all", std::string(mWhole.size(), 0)});
    EXPECT_EQ(Codes(cases), std::set<int>{193});
}

TEST_F(DamagedComponent, WhatIsNoFileIsNoValidImageAndIsNotWaitedFor) {
    const fs::path pipe = mFolder / "pipe.so";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(LoadCode(pipe), 193);
    fs::create_directory(mFolder / "folder.so");
    EXPECT_EQ(LoadCode(mFolder / "folder.so"), 193);
    fs::create_symlink("/dev/zero", mFolder / "device.so");
    EXPECT_EQ(LoadCode(mFolder / "device.so"), 193);
    fs::create_symlink("loop.so", mFolder / "loop.so");
    EXPECT_EQ(LoadCode(mFolder / "loop.so"), 126);
}

// Like a copy over a slow connection.
TEST_F(DamagedComponent, GrownWholeItIsLoaded) {
    const std::string file = Write("grows.so", mWhole.substr(0, mWhole.size() / 2));
    EXPECT_EQ(LoadCode(file), 193);
    std::ofstream(file, std::ios::binary | std::ios::app) << mWhole.substr(mWhole.size() / 2);
    EXPECT_EQ(LoadCode(file), 0);
}

TEST_F(DamagedComponent, ThatAnotherNeedsMakesThatNoValidImage) {
    fs::copy_file(kComponents / "Plain_64.so", mFolder / "Plain_64.so");
    Write("Component_64.so", mWhole.substr(0, mWhole.size() / 2));
    const pid_t child = fork();
    if (child == 0) _exit(LoadCode(mFolder / "Plain") == 193 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(DamagedComponent, InTheLoadersPlacesIsNoValidImage) {
    const fs::path placed = kComponents / "CutShort_64.so";
    std::ofstream(placed, std::ios::binary) << mWhole.substr(0, mWhole.size() / 2);
    const pid_t child = fork();
    if (child == 0) _exit(LoadCode("CutShort") == 193 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    fs::remove(placed);
    EXPECT_EQ(status, 0);
}

// The loader copies a name to its stack.
TEST_F(DamagedComponent, NameThatNoFileCanHaveIsRefused) {
    for (const std::size_t length : {4096u, 100000u, 20000000u}) {
        EXPECT_EQ(LoadCode(std::string(length, 'x')), 206) << length;
        EXPECT_EQ(LoadCode("/" + std::string(length, 'x')), 206) << length;
    }
    EXPECT_EQ(LoadCode("/" + std::string(256, 'x')), 206);
    EXPECT_EQ(LoadCode(mFolder / "folder" / std::string(200, 'x')), 126);
}

// The loader compares names as passed, not those of the files: it would search for this one.
TEST_F(DamagedComponent, WithTheFileNameOfALoadedOneIsNoValidImage) {
    const fs::path placed = kComponents / "Namesake_64.so";
    std::ofstream(placed, std::ios::binary) << mWhole.substr(0, mWhole.size() / 2);
    const pid_t child = fork();
    if (child == 0) {
        const std::string whole = Write("Namesake_64.so", mWhole);
        if (dlopen(whole.c_str(), RTLD_NOW) == nullptr) _exit(2);
        _exit(LoadCode("Namesake") == 193 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    fs::remove(placed);
    EXPECT_EQ(status, 0);
}

// A loaded module is no longer read from its file.
TEST_F(DamagedComponent, InThePlaceOfALoadedOneIsNotLookedAt) {
    const std::string whole = Write("loaded.so", mWhole);
    void* const module = dlopen(whole.c_str(), RTLD_NOW);
    ASSERT_NE(module, nullptr);
    const std::string half = Write("half.so", mWhole.substr(0, mWhole.size() / 2));
    fs::rename(half, whole);
    EXPECT_EQ(LoadCode(whole), 0);
    dlclose(module);
}

}  // namespace
