// Its constructor calls back into the program, and so holds the loader's lock as long as that takes.

void StayInTheLoader();

[[gnu::visibility("default")]] extern const int kIsStarted;
const int kIsStarted = (StayInTheLoader(), 1);
