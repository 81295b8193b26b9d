#define ZBASE_TEST_HIDDEN Veiled
#include "tests/modules/Nested.cpp"
