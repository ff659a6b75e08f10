#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "coreapi/platform/childprocess.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

/// A child process whose standard streams, those that are asked for, are pipes to this process. The others
/// are the null device. No shell takes part, the child gets no other handle of this process, and no signal of
/// its terminal.
///
/// A write to a child that has ended or closed its input throws JSysError "WriteFile"; a read from one that
/// has closed its output gives 0. Whoever feeds a child and reads from it does both at once, from separate
/// threads, each on its own socket: else both sides can wait for each other. The object itself is for one
/// thread at a time.
class JProcessPipe {
 public:
  /// Which streams become pipes; nothing runs yet.
  JProcessPipe(bool bRedirectStdin, bool bRedirectStdout, bool bRedirectStderr);

  /// `close`.
  virtual ~JProcessPipe();
  JProcessPipe(const JProcessPipe&) = delete;
  JProcessPipe& operator=(const JProcessPipe&) = delete;

  /// Starts a child from a command line that is made of `sPath` and the elements of `argv` from the second
  /// on, which a null ends; its first one is skipped. One blank stands between two, and what holds a blank is
  /// put in double quotes; quotes inside aren't escaped. The rest is as for the other form.
  void exec(const std::string& sPath, const char* const* argv, const char* const* env);

  /// Starts a child; one that was started before is closed first. The command line is cut at the blanks
  /// outside double quotes, which are taken away, and the program is looked for along PATH.
  ///
  /// `env`, which may be null, is "NAME=value" texts that a null ends. They are merged into this process's
  /// environment, sorted by bytes; a name that both have stands twice, the smaller text first.
  ///
  /// Throws JSysError: "CreatePipe for stdin" and "DuplicateHandle for stdin" (so for stdout and stderr),
  /// "GetEnvironmentStrings", and "CreateProcess" when the program can't be run. There is no child then.
  void exec(const std::string& sCommandLine, const char* const* env);

  /// Returns the child's exit code, 128 and more for one that a signal ended. `bCloseStdin` closes its input
  /// first. Without `bBlock` it throws JTimeoutError while the child runs. Throws JSysError
  /// "WaitForSingleObject", also when there is no child, and "GetExitCodeProcess".
  std::int32_t wait(bool bCloseStdin, bool bBlock);

  /// Closes the pipes and gives the child up; it isn't ended. A second call does nothing.
  void close();

  /// This side's ends, which stay this object's; null for a stream that isn't redirected, and without a
  /// child.
  JFileSocket* getStdin() const noexcept { return m_streams[0].get(); }
  JFileSocket* getStdout() const noexcept { return m_streams[1].get(); }
  JFileSocket* getStderr() const noexcept { return m_streams[2].get(); }

  /// Hands the writer of the child's input to the caller: its destruction tells the child that the input
  /// ends.
  [[nodiscard]] std::unique_ptr<JFileSocket> takeStdin() noexcept { return std::move(m_streams[0]); }

 private:
  static constexpr std::size_t kStreams = 3;

  struct Pipes;
  void start(const std::string& sCommandLine, const char* const* env);

  bool m_redirect[kStreams];
  std::unique_ptr<JFileSocket> m_streams[kStreams];  ///< input, output, error
  int m_iChild = qm_platform::kNoChild;
  bool m_bEnded = false;  ///< the exit code was taken
  std::int32_t m_iExitCode = 0;
};
