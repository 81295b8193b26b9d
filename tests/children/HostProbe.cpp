// HostProbe QUESTION [ARGUMENT]: calls the library with the host's own resolver.

#include "tests/children/HostProbe.h"

int main(int argc, char** argv) {
    return probe::Run(argc, argv);
}
