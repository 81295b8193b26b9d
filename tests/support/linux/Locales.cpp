#include "tests/support/Locales.h"

#include <stdlib.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <stdexcept>

#include "tests/support/ChildProcess.h"

namespace test {

namespace {

/// A directory that is removed when the process ends.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "locales-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no directory for locales");
        mPath = name;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    const std::filesystem::path& Path() const { return mPath; }

private:
    std::filesystem::path mPath;
};

const std::filesystem::path& Directory() {
    static const ScratchDirectory directory;
    return directory.Path();
}

// Compiles the locale from `source` and `charmap` if it does not exist yet.
void Compile(const std::string& name, const std::string& source, const std::string& charmap) {
    if (std::filesystem::exists(Directory() / name)) return;
    // It also warns about correct sources: success is tested by setting the locale.
    RunChild({"/usr/bin/localedef", "-c", "-i", source, "-f", charmap, Directory() / name});
}

std::filesystem::path WriteCharmap(const std::string& encoding, int longest) {
    const std::filesystem::path path = Directory() / ("charmap-" + encoding);
    std::ofstream file(path);
    file << "<code_set_name> " << encoding << "\n<comment_char> %\n<escape_char> /\n<mb_cur_max> " << longest
         << "\nCHARMAP\n"
         << std::hex << std::setfill('0');
    for (int octet = 0; octet != 0x80; ++octet) {
        file << "<U" << std::setw(4) << octet << "> /x" << std::setw(2) << octet << '\n';
    }
    file << "END CHARMAP\n";
    return path;
}

}  // namespace

ScopedLocale::ScopedLocale(const std::string& name) : mPrevious(std::setlocale(LC_ALL, nullptr)) {
    const std::size_t dot = name.find('.');
    Compile(name, name.substr(0, dot), name.substr(dot + 1));
    Set(name);
}

ScopedLocale::ScopedLocale(const std::string& encoding, int longest)
    : mPrevious(std::setlocale(LC_ALL, nullptr)) {
    const std::string name = "POSIX." + encoding;
    Compile(name, "POSIX", WriteCharmap(encoding, longest));
    Set(name);
}

void ScopedLocale::Set(const std::string& name) {
    setenv("LOCPATH", Directory().c_str(), 1);
    const char* set = std::setlocale(LC_ALL, name.c_str());
    unsetenv("LOCPATH");
    if (set == nullptr) throw std::runtime_error("no locale " + name + "; is package \"locales\" installed?");
}

ScopedLocale::~ScopedLocale() {
    std::setlocale(LC_ALL, mPrevious.c_str());
}

}  // namespace test
