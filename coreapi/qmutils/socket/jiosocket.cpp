#include "coreapi/qmutils/socket/jiosocket.h"

#include "coreapi/qmutils/error/jerror.h"

namespace {

/// The one time that all channels count from.
const JTime& sharedTimeOrigin() {
  static const JTime origin;
  return origin;
}

void clearStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) {
  for (std::uint64_t* pCount : {pFirst, pSecond, pThird}) {
    if (pCount != nullptr) {
      *pCount = 0;
    }
  }
}

/// Runs an operation that returns a number of bytes; -1 in place of every `JError`.
template <typename Operation>
std::int64_t withoutThrow(Operation operation) {
  try {
    return static_cast<std::int64_t>(operation());
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return -1;
  }
}

/// Runs a write to its end and tells how it went.
template <typename Operation>
void notifying(JSocketAsyncIONotify* pNotify, Operation operation) {
  std::size_t uBytes = 0;
  try {
    uBytes = operation();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    if (pNotify != nullptr) {
      pNotify->onError();
    }
    return;
  }
  if (pNotify != nullptr) {
    pNotify->onComplete(uBytes);
  }
}

}  // namespace

const JTime& JISocket::getTimeOrigin() const {
  return sharedTimeOrigin();
}

std::int64_t JISocket::readNoThrow(void* pBuffer, std::size_t uLength) {
  return withoutThrow([&] { return read(pBuffer, uLength); });
}

int JISocket::skip(std::int64_t /*iOffset*/) {
  return -1;
}

int JISocket::rewind() {
  return -1;
}

bool JISocket::tearDown() {
  return false;
}

void JISocket::keepAlive() {}

void JISocket::getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const {
  clearStatistics(pFirst, pSecond, pThird);
}

std::uint32_t JISocket::getAlignment() const {
  return 0;
}

const JTime& JOSocket::getTimeOrigin() const {
  return sharedTimeOrigin();
}

std::uint32_t JOSocket::getHeaderSize() const {
  return 0;
}

void JOSocket::write(const void* pBuffer, std::size_t uLength, JSocketAsyncIONotify* pNotify) {
  notifying(pNotify, [&] { return write(pBuffer, uLength); });
}

void JOSocket::writev(const JIoBuf* pBuffers, std::size_t uCount, JSocketAsyncIONotify* pNotify) {
  notifying(pNotify, [&] { return writev(pBuffers, uCount); });
}

std::int64_t JOSocket::writeNoThrow(const char* pText, std::size_t uLength) {
  return withoutThrow([&] { return write(pText, uLength); });
}

void JOSocket::reserved() {}

int JOSocket::rewind() {
  return -1;
}

void JOSocket::sendDisconnection(std::int32_t /*iId*/) {}

void JOSocket::sendKeepAlive() {}

void JOSocket::getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const {
  clearStatistics(pFirst, pSecond, pThird);
}

std::uint32_t JOSocket::getAlignment() const {
  return 0;
}

const JTime& JIoSocket::getTimeOrigin() const {
  return sharedTimeOrigin();
}

int JIoSocket::rewind() {
  return -1;
}

void JIoSocket::getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const {
  clearStatistics(pFirst, pSecond, pThird);
}

std::uint32_t JIoSocket::getAlignment() const {
  return 0;
}
