// Two modules that export the same and have frames of other sizes at the same places.
#ifndef ZBASE_TEST_FRAME
#define ZBASE_TEST_FRAME 64
#endif

extern "C" [[gnu::visibility("default"), gnu::noinline]] int CallBack(int (*function)(void*),
                                                                      void* argument) {
    volatile char room[ZBASE_TEST_FRAME];
    room[0] = 1;
    const int result = function(argument);
    return result + room[0] - 1;
}
