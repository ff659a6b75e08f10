#include "coreapi/qmutils/socket/jprocesspipe.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <vector>

#include "coreapi/platform/descriptor.h"
#include "coreapi/qmutils/error/jerror.h"

namespace {

constexpr const char* kStreamNames[] = {"stdin", "stdout", "stderr"};
constexpr std::size_t kInput = 0;

/// The standard streams of a process have the numbers below this one.
constexpr int kFirstOther = 3;

void check(int iError, const std::string& sFunction) {
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), sFunction.c_str());
  }
}

/// A descriptor that is closed at the end of its life.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  ~OwnedDescriptor() { reset(qm_platform::kNoDescriptor); }
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

  int get() const noexcept { return m_iNumber; }
  void release() noexcept { m_iNumber = qm_platform::kNoDescriptor; }
  void reset(int iNumber) noexcept {
    if (m_iNumber != qm_platform::kNoDescriptor) {
      qm_platform::closeDescriptor(m_iNumber);
    }
    m_iNumber = iNumber;
  }

  /// Goes over to a number that is no standard stream's, so that the child's streams don't get into each
  /// other's way.
  void moveUp(const std::string& sFunction) {
    int iDuplicate = qm_platform::kNoDescriptor;
    check(qm_platform::duplicateDescriptor(m_iNumber, iDuplicate, kFirstOther), sFunction);
    reset(iDuplicate);
  }

 private:
  int m_iNumber = qm_platform::kNoDescriptor;
};

/// The arguments of a command line: what stands between blanks outside double quotes.
std::vector<std::string> splitCommandLine(const std::string& sCommandLine) {
  std::vector<std::string> arguments;
  bool bInArgument = false;
  bool bQuoted = false;
  for (const char c : sCommandLine) {
    if (c == ' ' && !bQuoted) {
      bInArgument = false;
      continue;
    }
    if (!bInArgument) {
      arguments.emplace_back();
      bInArgument = true;
    }
    if (c == '"') {
      bQuoted = !bQuoted;
    } else {
      arguments.back() += c;
    }
  }
  return arguments;
}

std::string joinCommandLine(const std::string& sPath, const char* const* argv) {
  const auto quoted = [](const std::string& sPart) {
    return sPart.find(' ') != std::string::npos ? '"' + sPart + '"' : sPart;
  };
  std::string sCommandLine = quoted(sPath);
  if (argv != nullptr && *argv != nullptr) {
    while (*++argv != nullptr) {
      sCommandLine += ' ' + quoted(*argv);
    }
  }
  return sCommandLine;
}

/// This process's environment with the texts of `env` merged in.
std::vector<std::string> mergedEnvironment(const char* const* env) {
  std::vector<std::string> block;
  check(qm_platform::copyEnvironment(block), "GetEnvironmentStrings");
  if (env == nullptr || *env == nullptr) {
    return block;
  }
  std::vector<std::string> own;
  for (; *env != nullptr; ++env) {
    own.emplace_back(*env);
  }
  std::sort(block.begin(), block.end());
  std::sort(own.begin(), own.end());
  std::vector<std::string> merged;
  std::merge(block.begin(), block.end(), own.begin(), own.end(), std::back_inserter(merged));
  return merged;
}

}  // namespace

/// The pipes of a child that is being started.
struct JProcessPipe::Pipes {
  OwnedDescriptor own[kStreams];
  OwnedDescriptor child[kStreams];

  void make(std::size_t uStream) {
    int iRead = qm_platform::kNoDescriptor;
    int iWrite = qm_platform::kNoDescriptor;
    const std::string sName = kStreamNames[uStream];
    check(qm_platform::makePipe(iRead, iWrite), "CreatePipe for " + sName);
    own[uStream].reset(uStream == kInput ? iWrite : iRead);
    child[uStream].reset(uStream == kInput ? iRead : iWrite);
    own[uStream].moveUp("DuplicateHandle for " + sName);
    child[uStream].moveUp("DuplicateHandle for " + sName);
  }
};

JProcessPipe::JProcessPipe(bool bRedirectStdin, bool bRedirectStdout, bool bRedirectStderr)
    : m_redirect{bRedirectStdin, bRedirectStdout, bRedirectStderr} {}

JProcessPipe::~JProcessPipe() {
  close();
}

void JProcessPipe::exec(const std::string& sPath, const char* const* argv, const char* const* env) {
  exec(joinCommandLine(sPath, argv), env);
}

void JProcessPipe::exec(const std::string& sCommandLine, const char* const* env) {
  close();
  try {
    start(sCommandLine, env);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    close();
    JCATCH_LOG(error.get());
    error.rethrow();
  }
}

void JProcessPipe::start(const std::string& sCommandLine, const char* const* env) {
  Pipes pipes;
  qm_platform::ChildPlan plan;
  for (std::size_t i = 0; i < kStreams; ++i) {
    if (m_redirect[i]) {
      pipes.make(i);
    }
    plan.standard[i] = pipes.child[i].get();
  }
  plan.environment = mergedEnvironment(env);
  plan.arguments = splitCommandLine(sCommandLine);
  check(qm_platform::startChild(plan, m_iChild), "CreateProcess");
  for (std::size_t i = 0; i < kStreams; ++i) {
    if (m_redirect[i]) {
      pipes.child[i].reset(qm_platform::kNoDescriptor);
      m_streams[i] = std::make_unique<JFileSocket>(pipes.own[i].get());
      pipes.own[i].release();
    }
  }
}

std::int32_t JProcessPipe::wait(bool bCloseStdin, bool bBlock) {
  if (bCloseStdin) {
    m_streams[kInput].reset();
  }
  if (!m_bEnded) {
    bool bEnded = false;
    check(m_iChild == qm_platform::kNoChild ? ECHILD : qm_platform::awaitChild(m_iChild, bBlock, bEnded),
          "WaitForSingleObject");
    if (!bEnded) {
      QM_THROW(JTimeoutError);
    }
    check(qm_platform::takeExitCode(m_iChild, m_iExitCode), "GetExitCodeProcess");
    m_bEnded = true;
  }
  return m_iExitCode;
}

void JProcessPipe::close() {
  for (auto& pStream : m_streams) {
    pStream.reset();
  }
  if (m_iChild != qm_platform::kNoChild && !m_bEnded) {
    qm_platform::abandonChild(m_iChild);
  }
  m_iChild = qm_platform::kNoChild;
  m_bEnded = false;
}
