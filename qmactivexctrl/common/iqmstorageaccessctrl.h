#pragma once

#include <cstdint>
#include <string>

/// How a call at the host's surface ended. The numbers are those of the automation platform; never renumber,
/// hosts compare them.
enum class QMStatus : std::uint32_t {
  kOk = 0,                         ///< S_OK; the operation behind the call may have failed all the same
  kFail = 0x80004005,              ///< E_FAIL: a stored object can't be read or written
  kOutOfMemory = 0x8007000E,       ///< E_OUTOFMEMORY
  kMemberNotFound = 0x80020003,    ///< DISP_E_MEMBERNOTFOUND: no member has that dispid, or not in that form
  kTypeMismatch = 0x80020005,      ///< DISP_E_TYPEMISMATCH: an argument doesn't convert
  kBadParameterCount = 0x8002000E  ///< DISP_E_BADPARAMCOUNT
};

/// The 48 members by which a host works with the archive of a storage Manager.
///
/// Text is 16-bit, ended by a NUL; a null pointer is the empty text. Every member returns `kOk`, also when
/// its operation failed: that shows in the out argument, and `GetLastError` tells why. The only other status
/// is `kOutOfMemory`. No member throws.
///
/// The out argument is the last one. It holds after a failure: 0 in place of a query id, -1 for a command,
/// the empty text. Dates are texts such as "03/03/2011 10:00:00.000000UTC". `Fps` is the frame rate that
/// names a recording beside its source, 0 for sound. A member runs to its end on the calling thread; the
/// members of one object are called from one thread at a time.
class IQMStorageAccessCtrl {
 public:
  IQMStorageAccessCtrl() = default;
  IQMStorageAccessCtrl(const IQMStorageAccessCtrl&) = delete;
  IQMStorageAccessCtrl& operator=(const IQMStorageAccessCtrl&) = delete;
  virtual ~IQMStorageAccessCtrl() = default;

  // Where the Manager is. What is put takes effect at the next `Connect`.

  /// Host name; "localhost" at first.
  virtual QMStatus get_Server(std::u16string& Hostname) = 0;
  virtual QMStatus put_Server(const char16_t* Server) = 0;

  /// 11001 at first.
  virtual QMStatus get_Port(std::int32_t& Port) = 0;
  virtual QMStatus put_Port(std::int32_t Port) = 0;

  /// The port through which the service is reached where its own can't be; 0, at first, for none.
  virtual QMStatus get_TunnelPort(std::int32_t& pTunnelPort) = 0;
  virtual QMStatus put_TunnelPort(std::int32_t TunnelPort) = 0;

  /// Milliseconds that a call of the Manager may take; 2500 at first. What is put counts at once.
  virtual QMStatus get_TimeOut(std::int32_t& TimeOut) = 0;
  virtual QMStatus put_TimeOut(std::int32_t TimeOut) = 0;

  /// 1 when `Connect` connects on the calling thread, else 0, as at first. Any value but 0 puts 1.
  virtual QMStatus get_Blocking(std::int32_t& Blocking) = 0;
  virtual QMStatus put_Blocking(std::int32_t Blocking) = 0;

  // The link.

  /// 0 disconnected, 1 connecting, 2 connected.
  virtual QMStatus get_Status(std::int32_t& Status) = 0;

  /// Makes the link anew with the properties as they stand. 0, or -1 when a blocking connection failed.
  /// Without blocking the outcome comes as an event.
  virtual QMStatus Connect(std::int32_t& Result) = 0;

  /// Ends the link, and with it every query.
  virtual QMStatus Disconnect() = 0;

  /// The same as `Connect`.
  virtual QMStatus Rehash(std::int32_t& Result) = 0;

  /// A number by which any thread of the process can get this object back, once.
  virtual QMStatus GetId(std::int32_t& pInterface) = 0;

  // Queries. A query id is good until `GetNext` has given the empty text, `ReleaseQuery`, or the end of the
  // link.

  /// Searches recordings by criteria such as `SourceName="cam 1",MinFps=5`.
  virtual QMStatus DatabaseQuery(const char16_t* Criteria, std::int32_t& QueryId) = 0;
  virtual QMStatus AlarmNamesQuery(std::int32_t& QueryId) = 0;
  virtual QMStatus SourcesQuery(std::int32_t& QueryId) = 0;
  virtual QMStatus AlarmLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) = 0;
  virtual QMStatus ProtectedLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) = 0;

  /// The next row of a result; the empty text at its end, and for an unknown id.
  virtual QMStatus GetNext(std::int32_t QueryId, std::u16string& Item) = 0;

  /// Drops a result; an unknown id does nothing.
  virtual QMStatus ReleaseQuery(std::int32_t QueryId) = 0;

  // Commands and reads of parameter texts. Commands give 0 or -1.

  /// Keeps a span from being erased while the protection is valid.
  virtual QMStatus Protect(const char16_t* SourceName, std::int32_t Fps,
                           const char16_t* ProtectedIntervalStart, const char16_t* ProtectedIntervalEnd,
                           const char16_t* ValidityIntervalStart, const char16_t* ValidityIntervalEnd,
                           const char16_t* Details, std::int32_t& Res) = 0;
  virtual QMStatus Unprotect(const char16_t* SourceName, std::int32_t Fps,
                             const char16_t* ProtectedIntervalStart, const char16_t* ProtectedIntervalEnd,
                             std::int32_t& Res) = 0;

  /// One parameter of a parameter list's text, without any connection. When it is missing or doesn't convert,
  /// `Value` stays as it was.
  virtual QMStatus ExtractInteger(const char16_t* Parameter, const char16_t* Params, std::int32_t& Value) = 0;
  virtual QMStatus ExtractString(const char16_t* Parameter, const char16_t* Params,
                                 std::u16string& Value) = 0;

  /// Makes the Manager copy a recording to a path on its own side.
  virtual QMStatus LocalCopy(const char16_t* SourceName, std::int32_t Fps, const char16_t* BackupPath,
                             const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                             std::int32_t& Result) = 0;

  /// Copies a recording into a media file of this machine.
  virtual QMStatus RemoteCopy(const char16_t* SourceName, std::int32_t Fps, const char16_t* BackupPath,
                              const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                              std::int32_t& Result) = 0;

  /// Takes out the newest failure message, of five at most; the empty text when there is none.
  virtual QMStatus GetLastError(std::u16string& LastError) = 0;

  virtual QMStatus Alarm(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                         const char16_t* AlarmIncidentDate, const char16_t* AlarmIntervalStart,
                         const char16_t* AlarmIntervalEnd, std::int32_t& Res) = 0;
  virtual QMStatus Erase(const char16_t* SourceName, std::int32_t Fps, const char16_t* EraseIntervalStart,
                         const char16_t* EraseIntervalEnd, std::int32_t& Res) = 0;
  virtual QMStatus AddFile(const char16_t* FileName, const char16_t* DiskSpaceName,
                           const char16_t* SourceName, const char16_t* AlarmName, const char16_t* StartDate,
                           std::int32_t& ErrorCode) = 0;
  virtual QMStatus RemoveAlarmByInterval(const char16_t* SourceName, std::int32_t Fps,
                                         const char16_t* AlarmName, const char16_t* AlarmIntervalStart,
                                         const char16_t* AlarmIntervalEnd, std::int32_t& Res) = 0;
  virtual QMStatus RemoveAlarmByDate(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                                     const char16_t* AlarmIncidentDate, std::int32_t& Res) = 0;

  /// Copies a recording into the standard input of a child process. `AdditionalEnvironmentVariables` are
  /// "NAME=VALUE" tokens with blanks between them, in double quotes where they hold blanks. `Result` is a
  /// parameter list: "ErrorCode", "TerminationStatus", and what the child wrote to its output and error,
  /// "OutputString" and "ErrorString", where `RedirectOutput` and `RedirectError` aren't 0.
  virtual QMStatus RemoteCopyToProcess(const char16_t* SourceName, std::int32_t Fps, const char16_t* Format,
                                       const char16_t* CommandLine,
                                       const char16_t* AdditionalEnvironmentVariables,
                                       std::int32_t RedirectOutput, std::int32_t RedirectError,
                                       const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                                       std::u16string& Result) = 0;
  virtual QMStatus MetaDataLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) = 0;
  virtual QMStatus SetMetaData(const char16_t* SourceName, std::int32_t Fps, const char16_t* IntervalStart,
                               const char16_t* IntervalEnd, const char16_t* Params, std::int32_t& Res) = 0;
  virtual QMStatus UnsetMetaData(const char16_t* SourceName, std::int32_t Fps, const char16_t* IntervalStart,
                                 const char16_t* IntervalEnd, const char16_t* Params, std::int32_t& Res) = 0;

  /// As `ExtractInteger`; 1 or 0, and 0 when the parameter is missing.
  virtual QMStatus ExtractBoolean(const char16_t* Parameter, const char16_t* Params, std::int32_t& Value) = 0;

  /// As `ExtractInteger`; 0 when the parameter is missing.
  virtual QMStatus ExtractNumber(const char16_t* Parameter, const char16_t* Params, float& Value) = 0;

  virtual QMStatus HideIntervals(const char16_t* SourceName, std::int32_t Fps, const char16_t* Intervals,
                                 std::int32_t& Result) = 0;
  virtual QMStatus UnhideIntervals(const char16_t* SourceName, std::int32_t Fps, const char16_t* Intervals,
                                   std::int32_t& Result) = 0;

  // Analytics searches, which the Manager carries out while the host goes on.

  virtual QMStatus AnalyticsSourceQuery(const char16_t* SourceName, std::int32_t Fps,
                                        std::int32_t& QueryId) = 0;
  virtual QMStatus AnalyticsCreateQuery(const char16_t* SourceName, std::int32_t Fps,
                                        const char16_t* PluginType, const char16_t* Criteria,
                                        std::int32_t& QueryId) = 0;
  virtual QMStatus AnalyticsGetQueryStatus(std::int32_t QueryId, std::u16string& StatusInfo) = 0;
  virtual QMStatus AnalyticsStartQuery(std::int32_t QueryId, std::int32_t& Result) = 0;
  virtual QMStatus AnalyticsStopQuery(std::int32_t QueryId, std::int32_t& Result) = 0;

  /// Bytes of a recording between two dates, -1 after a failure.
  virtual QMStatus GetRecordingSize(const char16_t* SourceName, std::int32_t Fps,
                                    const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                                    std::int32_t& Result) = 0;
};
