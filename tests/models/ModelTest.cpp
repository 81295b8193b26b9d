// Each operation of texts, records and buffers is taken by a slow model or a program of operations, or a
// reason is given: "operations.txt" beside this says which.

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/models/Declarations.h"

namespace {

const std::string kTop = ZBASE_SOURCE_DIR "/";

std::string Content(const std::string& path) {
    std::ifstream file(kTop + path);
    EXPECT_TRUE(file) << path;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

struct Row {
    std::string operation;
    std::string source;  // of a program or a model; empty: what follows is a reason
    std::string what;    // an expression of the source
};

using Table = std::map<std::string, std::vector<Row>>;  // by header

// A header on a line of its own; below it an operation on each line, indented, " => ", and "SOURCE |
// EXPRESSION" or "- REASON".
Table ReadTable(const std::string& text) {
    Table table;
    std::istringstream lines(text);
    std::string header;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] != ' ') {
            header = line;
            table[header];
            continue;
        }
        const std::size_t arrow = line.find(" => ");
        if (arrow == std::string::npos) {
            ADD_FAILURE() << "a line without \" => \": " << line;
            continue;
        }
        const std::string said = line.substr(arrow + 4);
        const std::size_t bar = said.find(" | ");
        Row row{line.substr(line.find_first_not_of(' '), arrow - line.find_first_not_of(' ')), "", ""};
        if (said.rfind("- ", 0) == 0) {
            row.what = said.substr(2);
        } else if (bar != std::string::npos) {
            row.source = said.substr(0, bar);
            row.what = said.substr(bar + 3);
        }
        table[header].push_back(row);
    }
    return table;
}

// What is wrong with the rows of a header.
std::vector<std::string> Flaws(const std::vector<std::string>& declared, const std::vector<Row>& rows,
                               std::string (*contentOf)(const std::string& source)) {
    std::vector<std::string> flaws;
    const std::set<std::string> operations(declared.begin(), declared.end());
    std::set<std::string> known;
    for (const Row& row : rows) {
        known.insert(row.operation);
        if (operations.count(row.operation) == 0) flaws.push_back("is not declared: " + row.operation);
        if (row.what.empty()) flaws.push_back("has neither an expression nor a reason: " + row.operation);
        if (!row.source.empty() && contentOf(row.source).find(row.what) == std::string::npos)
            flaws.push_back(row.source + " does not have: " + row.what);
    }
    for (const std::string& operation : declared)
        if (known.count(operation) == 0) flaws.push_back("is in no model: " + operation);
    return flaws;
}

TEST(ModelTable, HasEachOperationOfTheHeaders) {
    const Table table = ReadTable(Content("tests/models/operations.txt"));
    ASSERT_GT(table.size(), 15u);
    for (const auto& [header, rows] : table) {
        const std::vector<std::string> declared = test::DeclaredOperations(Content(header));
        EXPECT_FALSE(declared.empty()) << header;
        EXPECT_EQ(Flaws(declared, rows, Content), std::vector<std::string>{}) << header;
    }
}

TEST(ModelTable, HasEachHeaderOfTextsRecordsAndBuffers) {
    const Table table = ReadTable(Content("tests/models/operations.txt"));
    for (const char* header : {"messages/Message.h",
                               "messages/MessageCursor.h",
                               "messages/ConstMessageCursor.h",
                               "memory/Buffer.h",
                               "memory/CreateBuffer.h",
                               "memory/BufferGrowth.h",
                               "memory/BufferResource.h",
                               "memory/MemoryBudget.h",
                               "memory/MemoryCeiling.h",
                               "memory/MemGovernorProxy.h",
                               "text/UnicodeConversions.h",
                               "text/UnicodeText.h",
                               "text/MultibyteConversions.h",
                               "text/GovernedConversions.h",
                               "text/NumberText.h",
                               "text/NearestDouble.h",
                               "text/BinaryText.h",
                               "text/FragmentedString.h",
                               "text/Guid.h",
                               "text/Udid.h",
                               "text/SidText.h"})
        EXPECT_EQ(table.count(std::string("Base/") + header), 1u) << header;
}

constexpr char kHeader[] = R"(
#define NOT_THIS(a) \
    void Macro(a)
namespace ZBase {
// A comment (with this).
ZBASE_API int Free(const char* text,
                   bool flag);
template <NotBool Flag>
int Free(const char* text, Flag flag) = delete;
class ZBASE_API Thing : public Base {
public:
    Thing() noexcept : mSize(0) {}
    explicit Thing(int size);
    virtual ~Thing() = default;
    virtual void* Take(std::size_t size) = 0;
    int Size() const { return mSize; }
private:
    void Hidden();
    int mSize;
};
struct Open {
    bool operator==(const Open& other) const;
};
}  // namespace ZBase
)";

TEST(ModelMachine, ReadsWhatAHeaderDeclares) {
    EXPECT_EQ(test::DeclaredOperations(kHeader),
              (std::vector<std::string>{"int Free(const char* text, bool flag)", "Thing: Thing() noexcept",
                                        "Thing: Thing(int size)", "Thing: void* Take(std::size_t size)",
                                        "Thing: int Size() const",
                                        "Open: bool operator==(const Open& other) const"}));
}

TEST(ModelMachine, SeesAnOperationWithoutAModel) {
    const Table table = ReadTable(
        "a.h\n    void One() => a.cpp | One()\n    void Two() => a.cpp | Two()\n    void Gone() => - nobody "
        "calls it\n"
        "    void Four() => \n");
    const auto content = [](const std::string&) { return std::string("program.One();"); };
    EXPECT_EQ(Flaws({"void One()", "void Two()", "void Three()", "void Four()"}, table.at("a.h"), content),
              (std::vector<std::string>{"a.cpp does not have: Two()", "is not declared: void Gone()",
                                        "has neither an expression nor a reason: void Four()",
                                        "is in no model: void Three()"}));
}

}  // namespace
