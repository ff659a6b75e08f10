#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/thread/jmutex.h"

class ASFOutput;

/// Stands for one frame on its way to the file: it is told how the write ended, has the writer account for
/// the frame, and goes back to the pool. Of the frame it keeps the header alone. Comes and goes on the thread
/// of the socket's writes.
class AsyncIONotifyBitstream : public JSocketAsyncIONotify {
 public:
  explicit AsyncIONotifyBitstream(ASFOutput& output) noexcept : m_pASFOutput(&output) {}

  /// Makes the object stand for a frame: its stream, its time, and the bytes that its data unit takes in the
  /// file, without what fills up a block.
  void set(std::uint32_t uStreamNumber, std::uint32_t uTime, const qm_ci::ConstBitstream& oCIBitstream,
           std::uint64_t uUnitSize) noexcept;

  void onComplete(std::size_t uBytes) override;
  void onError() override;

 private:
  ASFOutput* m_pASFOutput;
  std::uint32_t m_uStreamNumber = 0;
  std::uint32_t m_uTime = 0;
  std::array<std::uint8_t, qm_ci::ConstBitstream::m_uMinQMCIBitstreamSize> m_header{};
  std::uint64_t m_duSize = 0;
};

/// The notify objects of one writer, used again and again. Starts with one; doubles whenever one is asked for
/// and none is there. All must be back when it goes; an object that isn't stays undeleted, since a socket
/// still knows it. Any thread.
class AsyncIONotifyPool {
 public:
  explicit AsyncIONotifyPool(ASFOutput& output);
  ~AsyncIONotifyPool();
  AsyncIONotifyPool(const AsyncIONotifyPool&) = delete;
  AsyncIONotifyPool& operator=(const AsyncIONotifyPool&) = delete;

  /// An object, which comes back through `put`; null when there is no memory for more.
  std::unique_ptr<AsyncIONotifyBitstream> get() noexcept;
  void put(std::unique_ptr<AsyncIONotifyBitstream> pNotify) noexcept;

  /// Objects that exist, and those of them that are in the pool.
  std::size_t getMaxSize() const;
  std::size_t getSize() const;

 private:
  void grow(std::size_t nNewMaxSize);

  ASFOutput& m_output;
  std::vector<std::unique_ptr<AsyncIONotifyBitstream>> m_objects;  ///< those in the pool
  std::size_t m_nMaxSize = 0;
  mutable JMutex m_mutex;
};
