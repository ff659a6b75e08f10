#pragma once

namespace qmctl {

/// While there is one, Ctrl-C and the request to end don't kill the process but are kept until the work asks,
/// so that it can take back what it has half done. One at a time, on the thread that works.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// Throws `Failure` (interrupted) if it was asked for.
  void check() const;

 private:
  using Handler = void (*)(int);

  Handler m_beforeInterrupt;
  Handler m_beforeTerminate;
};

}  // namespace qmctl
