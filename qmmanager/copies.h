#pragma once

#include <cstddef>
#include <list>
#include <memory>

#include "coreapi/qmutils/thread/jmutex.h"
#include "qmmanager/copypush.h"

class JInetAddr;

namespace qm_manager {

/// The copies that are on their way, each on a thread of its own or, when it is written on this side, on the
/// thread of its client's connection. None waits for another.
///
/// Any thread.
class Copies {
 public:
  struct Settings {
    std::size_t uMost = 64;  ///< at the same time; each holds a thread and a frame of at most 64 MiB
    CopyPush::Limits push = {};
  };

  /// Counts one copy, from its construction on. Throws JTextError when there are as many as may be, and when
  /// they have been stopped.
  class Place {
   public:
    explicit Place(Copies& copies);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

   private:
    Copies& m_copies;
  };

  Copies() : Copies(Settings()) {}
  explicit Copies(const Settings& settings);

  /// Stops. Nobody may be inside a call any more.
  ~Copies();
  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;

  /// Connects to a client and pushes frames, which stand at their first description, to it from then on; this
  /// returns when the connection stands. Throws as `Place`, and JTextError when there is no connection.
  void push(std::unique_ptr<RecordedFrames> pFrames, const qm_stream::StreamProtocol& protocol,
            const JInetAddr& client);

  /// Breaks off all copies and lets none begin any more; returns when the threads have ended. Copies that are
  /// just being begun and those on other threads notice it and end by themselves.
  void stop();

  bool isStopped() const;

 private:
  struct Running {
    std::unique_ptr<Place> pPlace;
    std::unique_ptr<CopyPush> pPush;
    bool bStarted = false;
  };
  using List = std::list<Running>;

  void clearUp();
  List::iterator enter(Running running);
  void leave(List::iterator copy);

  const Settings m_settings;
  mutable JMutex m_mutex;  ///< over all below; before a copy's own
  bool m_bStopped = false;
  std::size_t m_uPlaces = 0;
  List m_running;
};

}  // namespace qm_manager
