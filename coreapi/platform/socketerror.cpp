#include "coreapi/platform/socketerror.h"

#include <cerrno>
#include <netdb.h>

namespace qm_platform {

namespace {

struct Row {
  int error;
  SocketError number;
};

constexpr SocketError kSystemCallFailure = 10107;

/// EPIPE has no number of its own: it is what a sender gets when the peer has closed and then reset.
constexpr Row kNumbers[] = {
    {0, 0},
    {EINTR, kSocketInterrupted},
    {EBADF, 10009},
    {EACCES, 10013},
    {EPERM, 10013},
    {EFAULT, 10014},
    {EINVAL, kSocketInvalidArgument},
    {EMFILE, 10024},
    {ENFILE, 10024},
    {EAGAIN, kSocketWouldBlock},
    {EINPROGRESS, 10036},
    {EALREADY, 10037},
    {ENOTSOCK, kSocketNotSocket},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, kSocketMessageSize},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, kSocketFamilyNotSupported},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {EPIPE, 10054},
    {ENOBUFS, 10055},
    {ENOMEM, 10055},
    {EISCONN, 10056},
    {ENOTCONN, kSocketNotConnected},
    {ESHUTDOWN, 10058},
    {ETOOMANYREFS, 10059},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},
    {ELOOP, 10062},
    {ENAMETOOLONG, 10063},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
    {ENOTEMPTY, 10066},
    {EUSERS, 10068},
    {EDQUOT, 10069},
    {ESTALE, 10070},
    {EREMOTE, 10071},
};

}  // namespace

SocketError socketErrorFromErrno(int error) noexcept {
  for (const Row& row : kNumbers) {
    if (row.error == error) {
      return row.number;
    }
  }
  return kSystemCallFailure;
}

SocketError socketErrorFromResolver(int code) noexcept {
  switch (code) {
    case EAI_NONAME:
      return kSocketHostNotFound;
    case EAI_AGAIN:
      return kSocketTryAgain;
    case EAI_NODATA:
    case EAI_ADDRFAMILY:
      return kSocketNoData;
    default:
      return kSocketNoRecovery;
  }
}

}  // namespace qm_platform
