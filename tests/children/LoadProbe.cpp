// LoadProbe LIBRARY TIMES: loads and unloads the library at run time, with a container path set in between.

#include "tests/children/InterposedCalls.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    for (int i = std::atoi(argv[2]); i != 0; --i) {
        probe::gLogging = true;
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
        probe::Log("loaded", "");
        probe::gLogging = false;
        void* setPath = dlsym(library, "_ZN5ZBase16SetContainerPathEPKc");
        void* getLocale = dlsym(library, "_ZN5ZBase16GetProcessLocaleEv");
        if (setPath == nullptr || getLocale == nullptr) return 1;
        reinterpret_cast<void (*)(const char*)>(setPath)(probe::kPath);
        if (std::strcmp(reinterpret_cast<const char* (*)()>(getLocale)(), probe::kLocaleName) != 0) return 1;
        probe::gLogging = true;
        if (dlclose(library) != 0) return 1;
        probe::Log("unloaded", "");
    }
    probe::gLogging = false;
}
