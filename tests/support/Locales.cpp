#include "tests/support/Locales.h"

#include <stdlib.h>

#include <clocale>
#include <filesystem>
#include <stdexcept>

#include "tests/support/ChildProcess.h"

namespace test {

namespace {

/// A directory that goes when the process ends.
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

void Compile(const std::string& name, const std::filesystem::path& directory) {
    if (std::filesystem::exists(directory / name)) return;
    const std::size_t dot = name.find('.');
    // It also complains about what is right: whether it worked shows in whether the locale can be set.
    RunChild({"/usr/bin/localedef", "-c", "-i", name.substr(0, dot), "-f", name.substr(dot + 1),
              directory / name});
}

}  // namespace

ScopedLocale::ScopedLocale(const std::string& name) : mPrevious(std::setlocale(LC_ALL, nullptr)) {
    static const ScratchDirectory directory;
    Compile(name, directory.Path());
    setenv("LOCPATH", directory.Path().c_str(), 1);
    const char* set = std::setlocale(LC_ALL, name.c_str());
    unsetenv("LOCPATH");
    if (set == nullptr) throw std::runtime_error("no locale " + name + "; is package \"locales\" installed?");
}

ScopedLocale::~ScopedLocale() {
    std::setlocale(LC_ALL, mPrevious.c_str());
}

}  // namespace test
