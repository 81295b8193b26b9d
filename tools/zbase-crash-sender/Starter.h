#pragma once

#include <cstdint>
#include <string>

// The process that started the sender, and the connection to it.

/// What is asked: on systems where the connection ends behind a request all up to there, else what stands
/// behind its length.
std::string ReadRequest();

/// Gives the one character back; false if nobody takes it.
bool Answer(char answer);

/// What is left to do by whom.
enum class EPart {
    eStays,   // answers, and ends
    eGoesOn,  // does the work; nobody waits for it any more
    eFailed,
};

/// Has the work go on while the starter is answered. On some systems the same process does both, and has
/// answered then.
EPart GoOnInBackground();

/// Lets go what the sender had from its starter and others may want: the directory, limits.
bool LeaveStarter();

/// A process whose end is waited for.
class Starter {
public:
    explicit Starter(unsigned int process);
    ~Starter();
    Starter(const Starter&) = delete;
    Starter& operator=(const Starter&) = delete;

    /// False if it ends before, or has ended.
    bool LivesFor(long long seconds) const;

private:
    std::intptr_t mProcess;
};
