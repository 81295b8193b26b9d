// Its constructor calls the program, and so holds the loader's lock for as long as that likes.

void StayInTheLoader();

[[gnu::visibility("default")]] extern const int kIsStarted;
const int kIsStarted = (StayInTheLoader(), 1);
