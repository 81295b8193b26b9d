#include "tests/models/Declarations.h"

#include <cctype>
#include <cstddef>
#include <sstream>

namespace test {
namespace {

// Without comments and lines of the preprocessor.
std::string Code(const std::string& header) {
    std::istringstream lines(header);
    std::string code;
    bool isContinued = false;
    for (std::string line; std::getline(lines, line);) {
        const bool isDirective = isContinued || line.rfind('#', 0) == 0;
        isContinued = isDirective && !line.empty() && line.back() == '\\';
        if (!isDirective) code += line.substr(0, line.find("//")) + ' ';
    }
    return code;
}

std::string WithoutWord(std::string text, const std::string& word) {
    for (std::size_t at = 0; (at = text.find(word)) != std::string::npos;) text.erase(at, word.size());
    return text;
}

// One blank between words, none at the ends, and nothing that is not a part of the signature.
std::string Plain(std::string text) {
    for (const char* word : {"ZBASE_API", "[[nodiscard]]", "virtual ", "static ", "explicit ", "inline "})
        text = WithoutWord(text, word);
    std::string plain;
    for (const char character : text) {
        const bool isBlank = std::isspace(static_cast<unsigned char>(character)) != 0;
        if (!isBlank) plain += character;
        if (isBlank && !plain.empty() && plain.back() != ' ') plain += ' ';
    }
    while (!plain.empty() && plain.back() == ' ') plain.pop_back();
    for (const char* end : {" = 0", " override"})
        if (plain.size() > std::string(end).size() && plain.ends_with(end))
            plain.resize(plain.size() - std::string(end).size());
    return plain;
}

bool Begins(const std::string& text, const std::string& word) {
    return text.rfind(word + " ", 0) == 0 || text == word;
}

struct Scope {
    std::string name;  // of a class; empty for a namespace
    bool isPublic = true;
};

// The name behind "class" or "struct", without what it derives from.
std::string ClassName(const std::string& head) {
    std::istringstream words(head.substr(0, head.find(" : ")));
    std::string name;
    for (std::string word; words >> word;)
        if (word != "final") name = word;
    return name;
}

class Reader {
public:
    std::vector<std::string> Read(const std::string& code) {
        for (std::size_t i = 0; i != code.size(); ++i) {
            const char character = code[i];
            if (character == '{') {
                i = Open(code, i);
            } else if (character == ';') {
                Declare(mHead);
            } else if (character == '}') {
                if (!mScopes.empty()) mScopes.pop_back();
                mHead.clear();
            } else if (character == ':' && EndsAccess()) {
                mHead.clear();
            } else {
                mHead += character;
            }
        }
        return mDeclared;
    }

private:
    // "public:" and the like.
    bool EndsAccess() {
        const std::string head = Plain(mHead);
        if (head != "public" && head != "private" && head != "protected") return false;
        if (!mScopes.empty()) mScopes.back().isPublic = head == "public";
        return true;
    }

    // Enters a scope, or passes the body of a function or an initialiser. Returns the last place that was
    // read.
    std::size_t Open(const std::string& code, std::size_t at) {
        const std::string head = Plain(mHead);
        const bool isFunction = head.find('(') != std::string::npos;
        if (!isFunction && Begins(head, "namespace")) {
            mScopes.push_back({head == "namespace detail" ? "detail" : "", head != "namespace detail"});
        } else if (!isFunction && (Begins(head, "class") || Begins(head, "struct"))) {
            const bool isSeen = mScopes.empty() || mScopes.back().isPublic;
            mScopes.push_back({ClassName(head), isSeen && Begins(head, "struct")});
        } else {
            if (isFunction) Declare(mHead);
            int depth = 0;
            for (; at != code.size(); ++at) {
                depth += code[at] == '{' ? 1 : code[at] == '}' ? -1 : 0;
                if (depth == 0) break;
            }
        }
        mHead.clear();
        return at;
    }

    void Declare(const std::string& head) {
        std::string plain = Plain(head);
        mHead.clear();
        for (const Scope& scope : mScopes)
            if (!scope.isPublic) return;
        // What a constructor begins with.
        if (const std::size_t start = plain.find(") : "); start != std::string::npos) plain.resize(start + 1);
        const std::string noexceptConstructor = ") noexcept : ";
        if (const std::size_t start = plain.find(noexceptConstructor); start != std::string::npos)
            plain.resize(start + noexceptConstructor.size() - 3);
        const bool isOperation = plain.find('(') != std::string::npos && plain.find("static_assert") != 0 &&
                                 plain.find("= delete") == std::string::npos &&
                                 plain.find('~') == std::string::npos &&
                                 plain.find("concept ") == std::string::npos &&
                                 plain.find("std::function") == std::string::npos && !Begins(plain, "using");
        if (!isOperation) return;
        if (plain.ends_with(" = default")) plain.resize(plain.size() - 10);
        std::string name;
        for (const Scope& scope : mScopes)
            if (!scope.name.empty()) name = scope.name;
        mDeclared.push_back(name.empty() ? plain : name + ": " + plain);
    }

    std::string mHead;
    std::vector<Scope> mScopes;
    std::vector<std::string> mDeclared;
};

}  // namespace

std::vector<std::string> DeclaredOperations(const std::string& header) {
    return Reader().Read(Code(header));
}

}  // namespace test
