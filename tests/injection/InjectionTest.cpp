// Every exported function, with its first allocation failing, then its second, and so on until none is left
// that could fail; then the same with the calls of the system. An operation ends as its header says, leaks
// nothing, and the next call works.

#include <TestPlaces.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/injection/NeverFail.h"
#include "tests/injection/Operation.h"

namespace test {

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> sOperations = [] {
        std::vector<Operation> all;
        for (const auto& some :
             {FrameOperations(), TextOperations(), MessageOperations(), MemoryOperations(),
              PlatformOperations(), DiagnosticsOperations(), CrashOperations(), XmlOperations()})
            all.insert(all.end(), some.begin(), some.end());
        return all;
    }();
    return sOperations;
}

}  // namespace test

namespace {

using test::EFailing;
using test::EWhere;
using test::Holdings;
using test::Operation;
using test::Trial;

constexpr std::size_t kMostCalls = 20'000;

std::string Describe(unsigned int endings) {
    std::string text;
    for (const auto& [ending, name] :
         {std::pair(test::kReturns, "returns "), std::pair(test::kBadAlloc, "bad_alloc "),
          std::pair(test::kMessage, "Message "), std::pair(test::kStandard, "std::exception "),
          std::pair(test::kAnything, "anything ")}) {
        if ((endings & ending) != 0) text += name;
    }
    return text;
}

/// Runs an operation with failure number `index`, and once more without; false when none failed.
class Round {
public:
    Round(const Operation& operation, EFailing failing) : mOperation(operation), mFailing(failing) {}

    /// What is wrong with it; empty if nothing is.
    std::string Run(std::size_t index, bool countsHoldings, bool& hasFailed) const {
        Holdings before = test::PresentHoldings();
        const unsigned int endings = Try(index);
        Holdings after = test::PresentHoldings();
        hasFailed = test::HasFailed();
        if ((endings & ~(hasFailed ? mOperation.ends : test::kReturns)) != 0)
            return "ends in " + Describe(endings) + "at " + Place(index);
        if (testing::Test::HasFailure()) return "gives something else at " + Place(index);
        // What is kept for the next time is kept once.
        for (int times = 0; countsHoldings && times != 3 && after.IsMoreThan(before); ++times) {
            before = test::PresentHoldings();
            Try(index);
            after = test::PresentHoldings();
        }
        if (countsHoldings && after.IsMoreThan(before))
            return "keeps " + std::to_string(after.blocks - before.blocks) + " blocks, " +
                   std::to_string(after.mappings - before.mappings) + " mappings, " +
                   std::to_string(after.descriptors - before.descriptors) + " descriptors at " + Place(index);
        if (!hasFailed) return "";
        const std::string place = Place(index);
        const unsigned int again = Try(kNone);
        if (again != test::kReturns || testing::Test::HasFailure())
            return "ends in " + Describe(again) + "the next time, after " + place;
        return "";
    }

    /// How it ends, once.
    unsigned int Try(std::size_t index) const {
        test::PrepareFailure(mFailing, index);
        Trial trial;
        mOperation.run(trial);
        return trial.Endings();
    }

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

private:
    std::string Place(std::size_t index) const {
        return std::string(test::NameOf(mFailing)) + " " + std::to_string(index) + ", " +
               test::DescribeFailure();
    }

    const Operation& mOperation;
    EFailing mFailing;
};

bool IsElsewhere(const Operation& operation, EFailing failing) {
    const bool lasts = failing == EFailing::eHeapForGood || failing == EFailing::eSystemForGood;
    return lasts && operation.whenItLasts != nullptr;
}

/// What an operation that has been used before does wrong; `failures` counts what was let fail.
std::string TryAgainAndAgain(const Operation& operation, std::size_t& failures) {
    for (int warm = 0; warm != 2; ++warm) {
        const unsigned int endings = Round(operation, EFailing::eHeap).Try(Round::kNone);
        if (endings != test::kReturns) return "ends in " + Describe(endings) + "untouched";
    }
    for (const EFailing failing : test::kAllFailing) {
        if (IsElsewhere(operation, failing)) continue;
        for (std::size_t index = 0;; ++index, ++failures) {
            bool hasFailed = false;
            const std::string wrong = Round(operation, failing).Run(index, true, hasFailed);
            if (!wrong.empty()) return wrong;
            if (!hasFailed) break;
            if (index == kMostCalls) return "does not come to an end";
        }
    }
    return "";
}

/// The same at its first use in a process, each time in another child.
std::string TryInChildren(const Operation& operation, std::size_t& failures) {
    enum { eUntouched, eFine, eWrong };
    for (const EFailing failing : test::kAllFailing) {
        if (IsElsewhere(operation, failing)) continue;
        for (std::size_t index = 0;; ++index, ++failures) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(60);
                bool hasFailed = false;
                const std::string wrong = Round(operation, failing).Run(index, false, hasFailed);
                if (!wrong.empty()) std::fprintf(stderr, "%s: %s\n", operation.name, wrong.c_str());
                _exit(!wrong.empty() ? eWrong : hasFailed ? eFine : eUntouched);
            }
            int status = 0;
            waitpid(child, &status, 0);
            if (WIFEXITED(status) && WEXITSTATUS(status) == eUntouched) break;
            if (!WIFEXITED(status) || WEXITSTATUS(status) != eFine)
                return std::string(test::NameOf(failing)) + " " + std::to_string(index) +
                       ": the child ended with " + std::to_string(status);
            if (index == kMostCalls) return "does not come to an end";
        }
    }
    return "";
}

std::string NameOfTest(const testing::TestParamInfo<std::size_t>& information) {
    std::string name;
    bool begins = true;
    for (const char c : std::string_view(test::Operations()[information.param].name)) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            name += begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        begins = c == ' ';
    }
    return name;
}

std::vector<std::size_t> AllBut(EWhere elsewhere) {
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i != test::Operations().size(); ++i) {
        if (test::Operations()[i].where != elsewhere) numbers.push_back(i);
    }
    return numbers;
}

// First, since what comes behind uses the library in this process.
class InjectionAtTheFirstUse : public testing::TestWithParam<std::size_t> {};

TEST_P(InjectionAtTheFirstUse, EndsAsPromisedAndTheNextCallWorks) {
    const Operation& operation = test::Operations()[GetParam()];
    std::size_t failures = 0;
    EXPECT_EQ(TryInChildren(operation, failures), "");
    RecordProperty("failures", static_cast<int>(failures));
}

INSTANTIATE_TEST_SUITE_P(Operations, InjectionAtTheFirstUse, testing::ValuesIn(AllBut(EWhere::eInOneProcess)),
                         NameOfTest);

class InjectionAtALaterUse : public testing::TestWithParam<std::size_t> {};

TEST_P(InjectionAtALaterUse, EndsAsPromisedLeaksNothingAndTheNextCallWorks) {
    const Operation& operation = test::Operations()[GetParam()];
    std::size_t failures = 0;
    EXPECT_EQ(TryAgainAndAgain(operation, failures), "");
    RecordProperty("failures", static_cast<int>(failures));
}

INSTANTIATE_TEST_SUITE_P(Operations, InjectionAtALaterUse, testing::ValuesIn(AllBut(EWhere::eInChildren)),
                         NameOfTest);

// The table against the list of what the library exports.

/// The name of an exported function without its parameters.
std::string_view WithoutParameters(std::string_view exported) {
    return exported.substr(0, exported.find_first_of("([", exported.find("operator") == 0 ? 10 : 0));
}

bool Covers(std::string_view row, std::string_view exported) {
    if (row.ends_with('*')) return exported.starts_with(row.substr(0, row.size() - 1));
    return row == exported || row == WithoutParameters(exported);
}

std::vector<std::string> Exports() {
    std::vector<std::string> exports;
    for (const char* list :
         {ZBASE_SOURCE_DIR "/cmake/exports.txt", ZBASE_SOURCE_DIR "/cmake/exports-zlitexml.txt"}) {
        std::ifstream file(list);
        for (std::string line; std::getline(file, line);) exports.push_back(line);
    }
    return exports;
}

/// What no row covers, and the rows' names of what is not there.
std::vector<std::string> Gaps(const std::vector<std::string>& exports,
                              const std::vector<Operation>& operations) {
    std::vector<std::string> gaps;
    const auto isCovered = [&](const std::string& exported) {
        return std::any_of(operations.begin(), operations.end(), [&](const Operation& operation) {
            return std::any_of(operation.covers.begin(), operation.covers.end(),
                               [&](std::string_view row) { return Covers(row, exported); });
        });
    };
    std::remove_copy_if(exports.begin(), exports.end(), std::back_inserter(gaps), isCovered);
    for (const Operation& operation : operations) {
        for (const std::string_view row : operation.covers) {
            if (std::none_of(exports.begin(), exports.end(),
                             [row](const std::string& exported) { return Covers(row, exported); }))
                gaps.push_back(std::string(row) + " is not exported");
        }
    }
    return gaps;
}

TEST(InjectionTable, HasEachFunctionThatIsExported) {
    const std::vector<std::string> exports = Exports();
    ASSERT_GT(exports.size(), 400u);
    EXPECT_EQ(Gaps(exports, test::Operations()), std::vector<std::string>{});
}

// Below the seam.

/// The functions of others that a library calls, by its dynamic symbols.
std::vector<std::string> CalledBy(const char* library) {
    std::vector<std::string> names;
    std::pair search(library, &names);
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* argument) {
            auto& [wanted, found] =
                *static_cast<std::pair<const char*, std::vector<std::string>*>*>(argument);
            if (std::strstr(module->dlpi_name, wanted) == nullptr) return 0;
            const ElfW(Sym)* symbols = nullptr;
            const char* texts = nullptr;
            const std::uint32_t* hash = nullptr;
            for (int i = 0; i != module->dlpi_phnum; ++i) {
                if (module->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
                const auto* entry =
                    reinterpret_cast<const ElfW(Dyn)*>(module->dlpi_addr + module->dlpi_phdr[i].p_vaddr);
                for (; entry->d_tag != DT_NULL; ++entry) {
                    const auto place = static_cast<std::uintptr_t>(entry->d_un.d_ptr);
                    if (entry->d_tag == DT_SYMTAB) symbols = reinterpret_cast<const ElfW(Sym)*>(place);
                    if (entry->d_tag == DT_STRTAB) texts = reinterpret_cast<const char*>(place);
                    if (entry->d_tag == DT_GNU_HASH) hash = reinterpret_cast<const std::uint32_t*>(place);
                }
            }
            // Those that are defined stand behind the others.
            for (std::uint32_t i = 1; hash != nullptr && i < hash[1]; ++i) {
                if (symbols[i].st_shndx == SHN_UNDEF) found->emplace_back(texts + symbols[i].st_name);
            }
            return 1;
        },
        &search);
    return names;
}

// A call that checks the room for its result fails no more often than the one that does not, nor does one
// that reads numbers as C23 does.
std::string_view Unchecked(std::string_view name) {
    constexpr std::string_view before = "__", behind = "_chk", newer = "__isoc23_";
    if (name.starts_with(newer)) return name.substr(newer.size());
    if (!name.starts_with(before) || !name.ends_with(behind)) return name;
    return name.substr(before.size(), name.size() - before.size() - behind.size());
}

TEST(InjectionTable, HasEachCallBelowTheSeamThatCanFail) {
    for (const char* library : {"libZBase.so", "libZLiteXML.so"}) {
        const std::vector<std::string> called = CalledBy(library);
        ASSERT_GT(called.size(), 50u) << library;
        for (const std::string& name : called) {
            if (name.starts_with("_Z") || name.starts_with("XML_")) continue;
            const auto is = [&](std::string_view known) { return known == name; };
            const auto& interposed = test::InterposedNames();
            const auto isUnchecked = [&](std::string_view known) { return known == Unchecked(name); };
            EXPECT_TRUE(std::any_of(interposed.begin(), interposed.end(), is) ||
                        std::any_of(std::begin(test::kNeverFail), std::end(test::kNeverFail), isUnchecked))
                << name << ", which " << library << " calls, is neither stood in front of nor listed";
        }
    }
}

// The machine itself: defects of its kinds are seen.

bool gHasFailedOnce = false;

// Out of sight of a compiler that would leave a block out which nobody looks at.
[[gnu::noipa]] int* Make() {
    return new int(1);
}
[[gnu::noipa]] void End(const int* number) {
    delete number;
}

const Operation kLeaks = {
    "leaks when its second allocation fails", {}, test::kBadAlloc | test::kReturns, [](Trial& trial) {
        trial([] {
            int* const first = Make();
            End(Make());
            End(first);
        });
    }};
const Operation kThrows = {"throws what its header does not tell", {}, test::kReturns, [](Trial& trial) {
                               trial([] { End(Make()); });
                           }};
const Operation kLosesDescriptors = {
    "loses descriptors when a read fails", {}, test::kReturns, [](Trial& trial) {
        trial([] {
            int ends[2];
            char octet = 0;
            if (pipe2(ends, 0) != 0) return;
            if (write(ends[1], "x", 1) == 1 && read(ends[0], &octet, 1) < 0) return;
            close(ends[0]);
            close(ends[1]);
        });
    }};
const Operation kStaysBroken = {
    "fails for ever once it has failed", {}, test::kReturns | test::kBadAlloc, [](Trial& trial) {
        const bool done = trial([] {
            if (gHasFailedOnce) throw std::bad_alloc();
            End(Make());
        });
        gHasFailedOnce = gHasFailedOnce || !done;
    }};
const Operation kCrashes = {"uses what it has not got", {}, test::kReturns, [](Trial& trial) {
                                trial([] {
                                    int ends[2];
                                    if (pipe2(ends, 0) != 0) std::abort();
                                    close(ends[0]);
                                    close(ends[1]);
                                });
                            }};

TEST(InjectionMachine, SeesALeakAndNamesTheFailureThatCausesIt) {
    std::size_t failures = 0;
    const std::string wrong = TryAgainAndAgain(kLeaks, failures);
    EXPECT_EQ(wrong.substr(0, wrong.find("malloc")), "keeps 1 blocks, 0 mappings, 0 descriptors at heap 1, ");
}

TEST(InjectionMachine, SeesAnExceptionThatWasNotPromised) {
    std::size_t failures = 0;
    EXPECT_EQ(TryAgainAndAgain(kThrows, failures).substr(0, 27), "ends in bad_alloc at heap 0");
    EXPECT_NE(TryInChildren(kThrows, failures), "");
}

TEST(InjectionMachine, SeesDescriptorsThatAreNotGivenBack) {
    std::size_t failures = 0;
    const std::string wrong = TryAgainAndAgain(kLosesDescriptors, failures);
    EXPECT_EQ(wrong.substr(0, wrong.find("read")), "keeps 0 blocks, 0 mappings, 2 descriptors at system 2, ");
}

TEST(InjectionMachine, SeesAnOperationThatDoesNotRecover) {
    std::size_t failures = 0;
    gHasFailedOnce = false;
    EXPECT_EQ(TryAgainAndAgain(kStaysBroken, failures).substr(0, 32), "ends in bad_alloc the next time,");
    gHasFailedOnce = false;
}

TEST(InjectionMachine, SeesAChildThatCrashes) {
    std::size_t failures = 0;
    EXPECT_EQ(TryInChildren(kCrashes, failures).substr(0, 31), "system 0: the child ended with ");
}

TEST(InjectionMachine, SeesWhatTheTableHasNotGotAndWhatIsNotThere) {
    const std::vector<std::string> exports = {"ZBase::One()", "ZBase::Other(int)", "ZBase::Other(long)"};
    const std::vector<Operation> operations = {
        {"", {"ZBase::Other(int)", "ZBase::Gone"}, test::kReturns, nullptr}};
    EXPECT_EQ(Gaps(exports, operations), (std::vector<std::string>{"ZBase::One()", "ZBase::Other(long)",
                                                                   "ZBase::Gone is not exported"}));
}

}  // namespace
