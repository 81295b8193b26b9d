// Its unwind tables are those of LargeFrames except for one number.
#define ZBASE_TEST_FRAME 2048
#include "tests/modules/SmallFrames.cpp"
