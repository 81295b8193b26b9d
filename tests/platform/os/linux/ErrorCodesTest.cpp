#include <Base/messages/SystemErrors.h>
#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace {

using namespace ZBase;

constexpr unsigned int kGeneral = 31;

TEST(ErrorCodes, EveryErrorNumberHasACodeWithAText) {
    for (int number = 0; number <= 133; ++number) {
        EXPECT_NE(GetWin32APIErrorDescriptionOrNULL(os::Win32CodeOf(number), 0).c_str(), nullptr) << number;
    }
}

TEST(ErrorCodes, OnlySuccessIsCodeZero) {
    EXPECT_EQ(os::Win32CodeOf(0), 0u);
    for (int number = 1; number <= 133; ++number) EXPECT_NE(os::Win32CodeOf(number), 0u) << number;
}

TEST(ErrorCodes, ErrorNumbersThatAServerMeetsHaveCodesOfTheirOwnKind) {
    const struct {
        int number;
        unsigned int code;
    } rows[] = {
        {EPERM, 5},
        {ENOENT, 2},
        {ESRCH, 87},
        {EINTR, 10004},
        {EIO, 1117},
        {ENXIO, 433},
        {E2BIG, 160},
        {ENOEXEC, 193},
        {EBADF, 6},
        {ECHILD, 128},
        {EAGAIN, 1237},
        {ENOMEM, 8},
        {EACCES, 5},
        {EFAULT, 998},
        {EBUSY, 170},
        {EEXIST, 183},
        {EXDEV, 17},
        {ENODEV, 433},
        {ENOTDIR, 267},
        {EISDIR, 336},
        {EINVAL, 87},
        {ENFILE, 4},
        {EMFILE, 4},
        {ENOTTY, 1},
        {ETXTBSY, 32},
        {EFBIG, 223},
        {ENOSPC, 112},
        {ESPIPE, 132},
        {EROFS, 19},
        {EMLINK, 1142},
        {EPIPE, 109},
        {EDOM, 87},
        {ERANGE, 122},
        {EDEADLK, 1131},
        {ENAMETOOLONG, 206},
        {ENOLCK, 167},
        {ENOSYS, 120},
        {ENOTEMPTY, 145},
        {ELOOP, 1921},
        {ENODATA, 1168},
        {ETIME, 1460},
        {EBADMSG, 13},
        {EOVERFLOW, 534},
        {EILSEQ, 1113},
        {ENOTSOCK, 10038},
        {EDESTADDRREQ, 10039},
        {EMSGSIZE, 10040},
        {EPROTOTYPE, 10041},
        {ENOPROTOOPT, 10042},
        {EPROTONOSUPPORT, 10043},
        {ESOCKTNOSUPPORT, 10044},
        {EOPNOTSUPP, 50},
        {EPFNOSUPPORT, 10046},
        {EAFNOSUPPORT, 10047},
        {EADDRINUSE, 10048},
        {EADDRNOTAVAIL, 10049},
        {ENETDOWN, 10050},
        {ENETUNREACH, 10051},
        {ENETRESET, 10052},
        {ECONNABORTED, 10053},
        {ECONNRESET, 10054},
        {ENOBUFS, 10055},
        {EISCONN, 10056},
        {ENOTCONN, 10057},
        {ESHUTDOWN, 10058},
        {ETIMEDOUT, 10060},
        {ECONNREFUSED, 10061},
        {EHOSTDOWN, 10064},
        {EHOSTUNREACH, 10065},
        {EALREADY, 10037},
        {EINPROGRESS, 10036},
        {ESTALE, 1006},
        {EUCLEAN, 1392},
        {EDQUOT, 1295},
        {ENOMEDIUM, 1112},
        {ECANCELED, 995},
        {EOWNERDEAD, 105},
    };
    for (const auto& row : rows)
        EXPECT_EQ(os::Win32CodeOf(row.number), row.code) << strerrorname_np(row.number);
}

TEST(ErrorCodes, NumbersWithoutACounterpartAreAGeneralFailure) {
    for (const int number : {41, 58, 134, 139, 512, 4095, 0x7FFFFFFF, -1, -0x7FFFFFFF - 1}) {
        EXPECT_EQ(os::Win32CodeOf(number), kGeneral) << number;
    }
}

TEST(ErrorCodes, ResolverResultsHaveTheCodesOfTheSocketLibrary) {
    const struct {
        int result;
        unsigned int code;
    } rows[] = {
        {0, 0},
        {EAI_BADFLAGS, 10022},
        {EAI_NONAME, 11001},
        {EAI_AGAIN, 11002},
        {EAI_FAIL, 11003},
        {EAI_NODATA, 11004},
        {EAI_FAMILY, 10047},
        {EAI_SOCKTYPE, 10044},
        {EAI_SERVICE, 10109},
        {EAI_ADDRFAMILY, 11004},
        {EAI_MEMORY, 8},
        {EAI_OVERFLOW, 122},
        {EAI_INPROGRESS, 10036},
        {EAI_CANCELED, 10103},
        {EAI_INTR, 10004},
        {1, kGeneral},
        {-1000, kGeneral},
    };
    for (const auto& row : rows) EXPECT_EQ(os::Win32CodeOfResolverResult(row.result), row.code) << row.result;
}

TEST(ErrorCodes, ResolverResultThatPointsAtTheErrorNumberTakesItsCode) {
    errno = EMFILE;
    EXPECT_EQ(os::Win32CodeOfResolverResult(EAI_SYSTEM), 4u);
}

TEST(ErrorCodes, LastCodeComesFromTheErrorNumberAndLeavesItAlone) {
    errno = ENOENT;
    os::SetLastCodeFromErrno();
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os::GetLastCode(), 2u);
    EXPECT_EQ(GetLastError(), 2u);
}

TEST(ErrorCodes, LastCodeBelongsToTheThread) {
    os::SetLastCode(1);
    std::thread([] {
        EXPECT_EQ(os::GetLastCode(), 0u);
        os::SetLastCode(2);
        EXPECT_EQ(os::GetLastCode(), 2u);
    }).join();
    EXPECT_EQ(os::GetLastCode(), 1u);
}

}  // namespace
