#pragma once

#include <cstdint>
#include <string>

/// What can be asked of an archive, whatever dialect its server speaks. Every generation of server has a
/// controller that implements it; the front hands each operation on to the one that fits.
///
/// Texts are UTF-8. Dates stay texts down to here, such as "03/03/2011 10:00:00.000000UTC" (see
/// `qm_utils::parseNtpDate`). A recording is named by its source and its frame rate `iFps`, which is 0 for
/// sound. Operations run on the calling thread to their end. A failure shows in the result, and its reason in
/// `getLastError`; no error leaves an operation.
///
/// A query id stands for a result whose rows are still to be read. It is never 0, and valid until `getNext`
/// has given the empty text, or until `releaseQuery`, or until the link goes down.
class IStorageAccessControl {
 public:
  /// A walk over the rows of one result.
  class IQueryResult {
   public:
    virtual ~IQueryResult() = default;

    /// The next row; the empty text at the end, and ever after.
    virtual std::string getNext() = 0;

    IQueryResult() = default;
    IQueryResult(const IQueryResult&) = delete;
    IQueryResult& operator=(const IQueryResult&) = delete;
  };

  virtual ~IStorageAccessControl() = default;

  IStorageAccessControl() = default;
  IStorageAccessControl(const IStorageAccessControl&) = delete;
  IStorageAccessControl& operator=(const IStorageAccessControl&) = delete;

  // Copies. 0 or -1, unless something else is said.

  /// The size of a recording between two dates: the low 32 bits of its count of bytes. 1 after a failure, 0
  /// when the server doesn't know, -1 without a link.
  virtual std::int32_t getRecordingSize(const std::string& sSource, std::int32_t iFps,
                                        const std::string& sStart, const std::string& sEnd) = 0;

  /// Copies a recording into a media file of this machine; the file's extension chooses its format.
  virtual std::int32_t remoteCopy(const std::string& sSource, std::int32_t iFps, const std::string& sPath,
                                  const std::string& sStart, const std::string& sEnd) = 0;

  /// Copies a recording into the standard input of a child process. `ppEnvironment` are variables that the
  /// child gets beside this process's own, "NAME=VALUE" each, ended by a null pointer. What the child writes
  /// to its output and error goes into `pOutput` and `pError`, unless they are null. All three out values are
  /// untouched when the child wasn't started.
  virtual std::int32_t remoteCopyToProcess(const std::string& sSource, std::int32_t iFps,
                                           const std::string& sFormat, const std::string& sCommandLine,
                                           const char* const* ppEnvironment, const std::string& sStart,
                                           const std::string& sEnd, std::string* pOutput, std::string* pError,
                                           std::int32_t& iTerminationStatus) = 0;

  /// Makes the server copy a recording to a path on its own side.
  virtual std::int32_t localCopy(const std::string& sSource, std::int32_t iFps, const std::string& sPath,
                                 const std::string& sStart, const std::string& sEnd) = 0;

  // Protection: spans that aren't erased as long as the protection is valid. 0 or -1.

  virtual std::int32_t unprotect(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                                 const std::string& sEnd) = 0;

  /// A validity text that is empty, or no date, leaves that end of the validity open.
  virtual std::int32_t protect(const std::string& sSource, std::int32_t iFps,
                               const std::string& sProtectedStart, const std::string& sProtectedEnd,
                               const std::string& sValidStart, const std::string& sValidEnd,
                               const std::string& sDetails) = 0;

  // Queries: a query id, or 0 after a failure.

  /// Drops a result. -1 for an id that isn't valid.
  virtual std::int32_t releaseQuery(std::int32_t iQueryId) = 0;

  virtual std::int32_t alarmLogQuery(const std::string& sSource, std::int32_t iFps) = 0;
  virtual std::int32_t protectedLogQuery(const std::string& sSource, std::int32_t iFps) = 0;

  /// The next row of a result; the empty text at its end and for an id that isn't valid.
  virtual std::string getNext(std::int32_t iQueryId) = 0;

  virtual std::int32_t sourcesQuery() = 0;
  virtual std::int32_t alarmNamesQuery() = 0;

  /// Searches recordings. The criteria are a parameter list, such as `SourceName="cam 1",MinFps=5`.
  virtual std::int32_t databaseQuery(const std::string& sCriteria) = 0;

  // Commands: 0 or -1.

  virtual std::int32_t alarm(const std::string& sSource, std::int32_t iFps, const std::string& sAlarmName,
                             const std::string& sIncident, const std::string& sStart,
                             const std::string& sEnd) = 0;
  virtual std::int32_t erase(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                             const std::string& sEnd) = 0;

  /// The start date goes to the server as it is.
  virtual std::int32_t addFile(const std::string& sFileName, const std::string& sDiskSpaceName,
                               const std::string& sSource, const std::string& sAlarmName,
                               const std::string& sStartDate) = 0;
  virtual std::int32_t removeAlarmByInterval(const std::string& sSource, std::int32_t iFps,
                                             const std::string& sAlarmName, const std::string& sStart,
                                             const std::string& sEnd) = 0;
  virtual std::int32_t removeAlarmByDate(const std::string& sSource, std::int32_t iFps,
                                         const std::string& sAlarmName, const std::string& sDate) = 0;

  /// Takes the newest failure message out; the empty text when there is none. At most 5 are kept.
  virtual std::string getLastError() = 0;

  // Metadata of spans, and hidden spans.

  /// A query.
  virtual std::int32_t metaDataLogQuery(const std::string& sSource, std::int32_t iFps) = 0;

  /// Commands. Parameters and intervals go to the server as they are.
  virtual std::int32_t setMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                                   const std::string& sEnd, const std::string& sParams) = 0;
  virtual std::int32_t unsetMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                                     const std::string& sEnd, const std::string& sParams) = 0;
  virtual std::int32_t hideIntervals(const std::string& sSource, std::int32_t iFps,
                                     const std::string& sIntervals) = 0;
  virtual std::int32_t unhideIntervals(const std::string& sSource, std::int32_t iFps,
                                       const std::string& sIntervals) = 0;

  // Analytics. A search runs at the server: it is created, started, asked for its state, and its rows are
  // read while it runs.

  /// Queries.
  virtual std::int32_t analyticsSourceQuery(const std::string& sSource, std::int32_t iFps) = 0;
  virtual std::int32_t analyticsCreateQuery(const std::string& sSource, std::int32_t iFps,
                                            const std::string& sPluginType, const std::string& sCriteria) = 0;

  /// Commands. The out text is the server's, a parameter list; it means nothing unless the result is 0.
  virtual std::int32_t analyticsGetQueryStatus(std::int32_t iQueryId, std::string& sStatus) = 0;
  virtual std::int32_t analyticsStartQuery(std::int32_t iQueryId) = 0;
  virtual std::int32_t analyticsStopQuery(std::int32_t iQueryId) = 0;

  /// How long calls from now on wait for their answers, in milliseconds; -1 for ever.
  virtual void setTimeOut(std::int32_t iTimeOut) = 0;
};
