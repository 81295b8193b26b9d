// LargeFrames without a build id.
#include "tests/modules/LargeFrames.cpp"
