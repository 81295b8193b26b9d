// LargeFramesToo without a build id.
#include "tests/modules/LargeFramesToo.cpp"
