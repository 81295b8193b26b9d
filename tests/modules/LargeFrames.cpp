#define ZBASE_TEST_FRAME 1024
#include "tests/modules/SmallFrames.cpp"
