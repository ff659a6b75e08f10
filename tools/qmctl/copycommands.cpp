#include <chrono>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "coreapi/qmutils/text/jutf8codec.h"
#include "tools/qmctl/commandline.h"
#include "tools/qmctl/copyprogress.h"
#include "tools/qmctl/copywatch.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/progress.h"
#include "tools/qmctl/text.h"

// The commands that take recordings out of the archive.

namespace qmctl {

namespace {

/// The arguments of all of them; each uses those that it has options for.
struct Arguments {
  std::string sSource;
  std::int32_t iFps = 0;
  std::string sStart;
  std::string sEnd;
  std::string sPath;
  std::string sFormat;
  std::string sEnvironment;
  std::vector<std::string> command;
};

/// What is copied, in the words of the control.
struct Recording {
  explicit Recording(const Arguments& given)
      : sSource(toControl(given.sSource)),
        iFps(given.iFps),
        sStart(toControl(toControlDate(given.sStart))),
        sEnd(toControl(toControlDate(given.sEnd))) {}

  std::u16string sSource;
  std::int32_t iFps;
  std::u16string sStart;
  std::u16string sEnd;
};

/// The size of a recording in bytes, modulo 4 GiB; 0 when nobody knows it, for a reason that then is in the
/// control's messages or is that the Manager didn't say it.
std::uint32_t askForSize(Session& session, const Recording& recording) {
  constexpr std::int32_t kNoLink = -1;
  constexpr std::int32_t kFailure = 1;
  std::int32_t iSize = 0;
  session.getControl().GetRecordingSize(recording.sSource.c_str(), recording.iFps, recording.sStart.c_str(),
                                        recording.sEnd.c_str(), iSize);
  return iSize == kNoLink || iSize == kFailure ? 0 : static_cast<std::uint32_t>(iSize);
}

void printSize(Context& context, const Arguments& given) {
  const Recording recording(given);
  Session session(context.settings);
  const std::uint32_t uSize = askForSize(session, recording);
  if (uSize == 0) {
    const std::string sText = session.takeMessages();
    throw Failure(kFailed, sText.empty() ? "the Manager doesn't tell the size" : sText);
  }
  if (context.settings.bJson) {
    writeJson(context.out, {{"size", uSize}});
  } else {
    context.out << uSize << '\n';
  }
}

void tellDone(Context& context, const char* szCommand) {
  if (context.settings.bJson) {
    writeJson(context.out, {{"command", szCommand}, {"result", 0}});
  } else {
    context.out << "done\n";
  }
}

void copyLocal(Context& context, const Arguments& given) {
  const Recording recording(given);
  const std::u16string sPath = toControl(given.sPath);
  Session session(context.settings);
  session.run([&](auto& control, auto& iResult) {
    control.LocalCopy(recording.sSource.c_str(), recording.iFps, sPath.c_str(), recording.sStart.c_str(),
                      recording.sEnd.c_str(), iResult);
  });
  tellDone(context, "copy-local");
}

/// The bytes of a file; 0 when there is none.
std::uint64_t sizeOf(const std::string& sFile) {
  std::error_code error;
  const std::uintmax_t uSize = std::filesystem::file_size(sFile, error);
  return error ? 0 : uSize;
}

/// Shows how far a copy is, over and over on one line of a terminal.
class ProgressBar {
 public:
  ProgressBar(Context& context, std::string sFile, std::uint64_t uExpected)
      : m_line(context), m_sFile(std::move(sFile)), m_uExpected(uExpected) {}

  void show() { show(sizeOf(m_sFile), m_uExpected); }

  /// Leaves a line on the terminal that tells of the whole copy.
  void finish() {
    const std::uint64_t uSize = sizeOf(m_sFile);
    show(uSize, uSize);
    m_line.keep();
  }

 private:
  using Clock = std::chrono::steady_clock;

  void show(std::uint64_t uSize, std::uint64_t uExpected) {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_start);
    m_line.showText(progressLine(uSize, uExpected, static_cast<std::uint64_t>(passed.count())));
  }

  Progress m_line;
  const std::string m_sFile;
  const std::uint64_t m_uExpected;
  const Clock::time_point m_start = Clock::now();
};

/// A file's name as the control takes it, which opens the file under the same name then.
std::u16string fileForControl(const std::string& sFile) {
  std::u16string sName = toControl(sFile);
  if (JUTF8Codec::toUtf8(sName.c_str()) != sFile) {
    throw Failure(kWrongUsage, "no file is made whose name has characters beyond U+FFFF: '" + sFile + "'");
  }
  return sName;
}

/// Tells what a copy has made of a file.
class Target {
 public:
  /// Before the copy.
  explicit Target(std::string sFile) : m_sFile(std::move(sFile)), m_before(writtenAt()) {}

  /// After it: whether the file holds something of it. An empty one that it leaves is removed.
  bool holdsCopy() const {
    if (writtenAt() == m_before) {
      return false;
    }
    std::error_code error;
    if (std::filesystem::is_regular_file(m_sFile, error) && sizeOf(m_sFile) == 0) {
      std::filesystem::remove(m_sFile, error);
    }
    return std::filesystem::exists(m_sFile, error);
  }

 private:
  using Time = std::filesystem::file_time_type;

  /// The least of all times for a file that isn't there.
  Time writtenAt() const {
    std::error_code error;
    const Time time = std::filesystem::last_write_time(m_sFile, error);
    return error ? Time::min() : time;
  }

  const std::string m_sFile;
  const Time m_before;
};

void copy(Context& context, const Arguments& given) {
  const Recording recording(given);
  const std::u16string sPath = fileForControl(given.sPath);
  Session session(context.settings);
  std::unique_ptr<ProgressBar> pBar;
  if (context.bShowProgress) {
    pBar = std::make_unique<ProgressBar>(context, given.sPath, askForSize(session, recording));
    session.takeMessages();  // without a size there is less to show, which is no failure
  }
  const Target target(given.sPath);
  std::int32_t iResult = -1;
  CopyWatch watch(session.getControl(), pBar ? [&] { pBar->show(); } : std::function<void()>());
  session.getControl().RemoteCopy(recording.sSource.c_str(), recording.iFps, sPath.c_str(),
                                  recording.sStart.c_str(), recording.sEnd.c_str(), iResult);
  const int iSignal = watch.finish();
  if (pBar && iResult == 0) {
    pBar->finish();
  }
  pBar.reset();
  const bool bKept = target.holdsCopy();
  const std::string sKept = "'" + given.sPath + "' holds what had come until then";
  if (iResult == 0) {
    if (!bKept) {
      throw Failure(kFailed, "nothing came that is recorded between these dates; there is no file");
    }
    tellDone(context, "copy");
  } else if (iSignal != 0) {
    failInterrupted(iSignal, bKept ? sKept : "nothing had come, so there is no file");
  } else {
    const std::string sText = session.takeMessages();
    throw Failure(kFailed, (sText.empty() ? "the copy failed" : sText) + (bKept ? "\n" + sKept : ""));
  }
}

/// A command line as the control takes it: blanks stand between the words, and a word is quoted where it must
/// be. Nothing stands for a quotation mark itself.
std::u16string commandLineOf(const std::vector<std::string>& words) {
  std::string sLine;
  for (const std::string& sWord : words) {
    if (sWord.find('"') != std::string::npos) {
      throw Failure(kWrongUsage, "a command can't have double quotes in its arguments: " + sWord);
    }
    const bool bQuoted = sWord.empty() || sWord.find(' ') != std::string::npos;
    sLine += (sLine.empty() ? "" : " ") + (bQuoted ? '"' + sWord + '"' : sWord);
  }
  return toControl(sLine);
}

/// How a copy into a child has ended.
struct PipeResult {
  explicit PipeResult(JQMStorageAccessCtrl& control, const std::u16string& sResult) {
    control.ExtractInteger(u"ErrorCode", sResult.c_str(), iErrorCode);
    control.ExtractInteger(u"TerminationStatus", sResult.c_str(), iStatus);
    const auto text = [&](const char16_t* szName) {
      std::u16string sText;
      control.ExtractString(szName, sResult.c_str(), sText);
      return fromControl(sText);
    };
    sOutput = text(u"OutputString");
    sError = text(u"ErrorString");
  }

  std::int32_t iErrorCode = -1;
  std::int32_t iStatus = 0;
  std::string sOutput;
  std::string sError;
};

void show(Context& context, const PipeResult& result) {
  if (context.settings.bJson) {
    writeJson(context.out, {{"command", "pipe"},
                            {"result", result.iErrorCode},
                            {"status", result.iStatus},
                            {"output", result.sOutput},
                            {"error", result.sError}});
  } else {
    context.out << result.sOutput;
    context.out.flush();
    context.error << result.sError;
  }
}

void pipeInto(Context& context, const Arguments& given) {
  const Recording recording(given);
  const std::u16string sCommandLine = commandLineOf(given.command);
  const std::u16string sFormat = toControl(given.sFormat);
  const std::u16string sEnvironment = toControl(given.sEnvironment);
  Session session(context.settings);
  std::u16string sResult;
  CopyWatch watch(session.getControl(), {});
  session.getControl().RemoteCopyToProcess(recording.sSource.c_str(), recording.iFps, sFormat.c_str(),
                                           sCommandLine.c_str(), sEnvironment.c_str(), 1, 1,
                                           recording.sStart.c_str(), recording.sEnd.c_str(), sResult);
  const int iSignal = watch.finish();
  const PipeResult result(session.getControl(), sResult);
  show(context, result);
  const std::string sEnded =
      result.iStatus == 0 ? std::string() : "the command ended with status " + std::to_string(result.iStatus);
  if (result.iErrorCode != 0 && iSignal != 0) {
    failInterrupted(iSignal, "the command got what had come until then" +
                                 (sEnded.empty() ? std::string() : "\n" + sEnded));
  }
  if (result.iErrorCode != 0) {
    std::string sText = session.takeMessages();
    sText = sText.empty() ? "the copy failed" : sText;
    throw Failure(kFailed, sText + (sEnded.empty() ? "" : "\n" + sEnded));
  }
  if (!sEnded.empty()) {
    throw Failure(kFailed, sEnded);
  }
}

using Work = void (*)(Context& context, const Arguments& given);

/// A command on a span of a recording.
struct Built {
  CLI::App& command;
  std::shared_ptr<Arguments> pArguments;
};

Built build(CLI::App& app, Context& context, const char* szName, const char* szDescription,
            const std::string& sExample, Work work) {
  CLI::App& command = addCommand(app, szName, szDescription, sExample);
  auto pArguments = std::make_shared<Arguments>();
  addRecording(command, pArguments->sSource, pArguments->iFps);
  command.add_option("START", pArguments->sStart, "First date of the span")->required()->check(isDate());
  command.add_option("END", pArguments->sEnd, "Last date of the span; at most 72 hours behind the first")
      ->required()
      ->check(isDate());
  command.callback([&context, pArguments, work] {
    context.todo = [&context, pArguments, work] { work(context, *pArguments); };
  });
  return {command, pArguments};
}

}  // namespace

void addCopyCommands(CLI::App& app, Context& context) {
  const std::string sSpan = " gate 25 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z";
  build(app, context, "size", "Tells how many bytes a span has, modulo 4 GiB", "size" + sSpan, printSize);
  const Built copying = build(app, context, "copy", "Copies a span into a media file on this machine",
                              "copy" + sSpan + " gate.asf", copy);
  copying.command
      .add_option("FILE", copying.pArguments->sPath,
                  "The file; its extension chooses the format: .asf, .avi, .mp3 or .wav")
      ->required();
  const Built local = build(app, context, "copy-local", "Copies a span to a path on the Manager's side",
                            "copy-local" + sSpan + " gate.asf", copyLocal);
  local.command.add_option("PATH", local.pArguments->sPath, "The Manager's own path")->required();
  const Built piping = build(app, context, "pipe", "Copies a span into the standard input of a command",
                             "pipe gate 0 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z --format wav -- "
                             "sox --ignore-length -t wav - gate.flac",
                             pipeInto);
  piping.command.add_option("--format", piping.pArguments->sFormat, "asf, avi, mp3 or wav")->required();
  piping.command.add_option("--env", piping.pArguments->sEnvironment,
                            "Variables for the command, NAME=VALUE with blanks between them; one that holds "
                            "blanks in double quotes");
  piping.command
      .add_option("COMMAND", piping.pArguments->command, "The command and its arguments, behind --")
      ->required();
}

}  // namespace qmctl
