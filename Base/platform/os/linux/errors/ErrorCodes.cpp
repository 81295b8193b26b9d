#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>

#include <netdb.h>
#include <array>
#include <cerrno>

namespace ZBase::os {

namespace {

struct Row {
    int number;
    Win32Code code;
};

// Missing numbers have no counterpart: leftovers of other systems that no Linux call returns to a server.
constexpr Row kErrnoRows[] = {
    // files, processes, memory
    {0, kSuccess},
    {EPERM, kAccessDenied},
    {ENOENT, kFileNotFound},
    {ESRCH, kInvalidParameter},  // from opening a process that does not exist
    {EINTR, kSocketInterrupted},
    {EIO, kDeviceFailure},
    {ENXIO, kNoSuchDevice},
    {E2BIG, kBadArguments},
    {ENOEXEC, kBadImage},
    {EBADF, kInvalidHandle},
    {ECHILD, kNoChildren},
    {EAGAIN, kRetry},
    {ENOMEM, kNotEnoughMemory},
    {EACCES, kAccessDenied},
    {EFAULT, kNoAccess},
    {ENOTBLK, kInvalidParameter},
    {EBUSY, kBusy},
    {EEXIST, kAlreadyExists},
    {EXDEV, kNotSameDevice},
    {ENODEV, kNoSuchDevice},
    {ENOTDIR, kInvalidDirectory},
    {EISDIR, kDirectoryNotSupported},
    {EINVAL, kInvalidParameter},
    {ENFILE, kTooManyOpenFiles},
    {EMFILE, kTooManyOpenFiles},
    {ENOTTY, kInvalidFunction},
    {ETXTBSY, kSharingViolation},
    {EFBIG, kFileTooLarge},
    {ENOSPC, kDiskFull},
    {ESPIPE, kSeekOnDevice},
    {EROFS, kWriteProtected},
    {EMLINK, kTooManyLinks},
    {EPIPE, kBrokenPipe},
    {EDOM, kInvalidParameter},
    {ERANGE, kInsufficientBuffer},  // from calls that fill a buffer; only mathematics mean a range
    {EDEADLK, kPossibleDeadlock},
    {ENAMETOOLONG, kNameTooLong},
    {ENOLCK, kLockFailed},
    {ENOSYS, kCallNotImplemented},
    {ENOTEMPTY, kDirectoryNotEmpty},
    {ELOOP, kCannotResolveFileName},
    {ENOMSG, kNoMoreItems},
    {EIDRM, kNotFound},
    {EBADE, kInvalidParameter},
    {EBADR, kInvalidParameter},
    {ENODATA, kNotFound},
    {ETIME, kTimeout},
    {ENOSR, kNoSystemResources},
    {ENOLINK, kNetworkNameDeleted},
    {EPROTO, kUnexpectedNetworkError},
    {EBADMSG, kInvalidData},
    {EOVERFLOW, kArithmeticOverflow},
    {EBADFD, kInvalidHandle},
    {EILSEQ, kNoUnicodeTranslation},
    {ERESTART, kRetry},
    {ESTALE, kFileInvalid},
    {EUCLEAN, kFileCorrupt},
    {EREMOTEIO, kDeviceFailure},
    {EDQUOT, kDiskQuotaExceeded},
    {ENOMEDIUM, kNoMedium},
    {EMEDIUMTYPE, kUnrecognizedMedium},
    {ECANCELED, kOperationAborted},
    {ENOKEY, kNotFound},
    {EKEYEXPIRED, kNotAuthenticated},
    {EKEYREVOKED, kNotAuthenticated},
    {EKEYREJECTED, kNotAuthenticated},
    {EOWNERDEAD, kOwnerDied},
    {ENOTRECOVERABLE, kGeneralFailure},
    {ERFKILL, kNotReady},
    {EHWPOISON, kDeviceFailure},
    // modules
    {ELIBACC, kModuleNotFound},
    {ELIBBAD, kBadImage},
    {ELIBSCN, kBadImage},
    {ELIBMAX, kTooManyModules},
    {ELIBEXEC, kBadImage},
    // network
    {ENONET, kNoNetwork},
    {EREMOTE, kItemRemote},
    {ECOMM, kUnexpectedNetworkError},
    {ENOTUNIQ, kDuplicateName},
    {ESTRPIPE, kBrokenPipe},
    {EUSERS, kTooManyUsers},
    {ENOTSOCK, kNotASocket},
    {EDESTADDRREQ, kDestinationRequired},
    {EMSGSIZE, kDatagramTooLarge},
    {EPROTOTYPE, kWrongProtocolType},
    {ENOPROTOOPT, kNoProtocolOption},
    {EPROTONOSUPPORT, kProtocolNotSupported},
    {ESOCKTNOSUPPORT, kSocketTypeNotSupported},
    {EOPNOTSUPP, kNotSupported},  // for files as well as sockets
    {EPFNOSUPPORT, kProtocolFamilyNotSupported},
    {EAFNOSUPPORT, kAddressFamilyNotSupported},
    {EADDRINUSE, kAddressInUse},
    {EADDRNOTAVAIL, kAddressNotAvailable},
    {ENETDOWN, kNetworkDown},
    {ENETUNREACH, kNetworkUnreachable},
    {ENETRESET, kNetworkReset},
    {ECONNABORTED, kConnectionAborted},
    {ECONNRESET, kConnectionReset},
    {ENOBUFS, kNoBufferSpace},
    {EISCONN, kAlreadyConnected},
    {ENOTCONN, kNotConnected},
    {ESHUTDOWN, kSocketShutDown},
    {ETOOMANYREFS, kTooManyReferences},
    {ETIMEDOUT, kConnectionTimeout},
    {ECONNREFUSED, kConnectionRefused},
    {EHOSTDOWN, kHostDown},
    {EHOSTUNREACH, kHostUnreachable},
    {EALREADY, kSocketAlreadyInProgress},
    {EINPROGRESS, kSocketInProgress},
};

constexpr int kErrnoCount = EHWPOISON + 1;

constexpr auto kErrnoCodes = [] {
    std::array<unsigned short, kErrnoCount> codes{};
    codes.fill(kGeneralFailure);
    for (const Row& row : kErrnoRows) {
        codes[static_cast<std::size_t>(row.number)] = static_cast<unsigned short>(row.code);
    }
    return codes;
}();

constexpr Row kResolverRows[] = {
    {0, kSuccess},
    {EAI_BADFLAGS, kSocketInvalidArgument},
    {EAI_NONAME, kHostNotFound},
    {EAI_AGAIN, kHostTryAgain},
    {EAI_FAIL, kHostNoRecovery},
    {EAI_NODATA, kHostNoData},
    {EAI_FAMILY, kAddressFamilyNotSupported},
    {EAI_SOCKTYPE, kSocketTypeNotSupported},
    {EAI_SERVICE, kServiceTypeNotFound},
    {EAI_ADDRFAMILY, kHostNoData},
    {EAI_MEMORY, kNotEnoughMemory},
    {EAI_OVERFLOW, kInsufficientBuffer},
    {EAI_INPROGRESS, kSocketInProgress},
    {EAI_CANCELED, kLookupCancelled},
    {EAI_INTR, kSocketInterrupted},
};

}  // namespace

unsigned int Win32CodeOf(int errnoValue) {
    if (errnoValue < 0 || errnoValue >= kErrnoCount) return kGeneralFailure;
    return kErrnoCodes[static_cast<std::size_t>(errnoValue)];
}

unsigned int Win32CodeOfResolverResult(int result) {
    if (result == EAI_SYSTEM) return Win32CodeOf(errno);
    for (const Row& row : kResolverRows) {
        if (row.number == result) return row.code;
    }
    return kGeneralFailure;
}

void SetLastCodeFromErrno() {
    SetLastCode(Win32CodeOf(errno));
}

}  // namespace ZBase::os
