#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qmactivexctrl/common/qm_atlcom_ext.h"
#include "qmactivexctrl/qmstorageaccesscontroller/JConnectorInterface.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessCtrlInterface.h"
#include "qmactivexctrl/qmstorageaccesscontroller/propertystream.h"

/// The object that a host makes to work with the archive of a storage Manager: 48 members
/// (`IQMStorageAccessCtrl`), and two events to sinks of the host's (`IQMStorageAccessCtrlEvents`).
///
///     JQMStorageAccessCtrl control;
///     std::int32_t iResult = 0;
///     control.put_Server(u"archive.example");
///     control.put_Blocking(1);
///     control.Connect(iResult);
///     std::int32_t iQuery = 0;
///     control.DatabaseQuery(uR"(SourceName="gate",MinFps=5)", iQuery);
///     std::u16string sRow;
///     while (control.GetNext(iQuery, sRow) == QMStatus::kOk && !sRow.empty()) {
///       ...
///     }
///
/// Threads: members come on one thread at a time, and run on it to their end, a whole copy included. Sinks
/// are connected and disconnected on any thread; events come on the link's event thread and touch nothing but
/// the sinks. A handler of an event may call members, as long as the host's own thread doesn't meanwhile.
class JQMStorageAccessCtrl final : public IQMStorageAccessCtrl,
                                   public IQMDispatchImpl<JQMStorageAccessCtrl>,
                                   public JRPCNotifyWithContext,
                                   public JConnectorInterface,
                                   private IQMControlEventsLog<JQMStorageAccessCtrl> {
 public:
  /// Nothing is connected yet.
  JQMStorageAccessCtrl();

  /// Ends the link. No event comes afterwards. Not from a handler of an event.
  ~JQMStorageAccessCtrl() override;

  /// The control of a number that `GetId` gave, once; null otherwise. Any thread. Whoever takes a control
  /// must know that it lives on.
  static JQMStorageAccessCtrl* fromId(std::int32_t iId) noexcept;

  /// The sinks of the events. Any thread.
  IConnectionPointImplMT& getEvents() noexcept { return m_events; }

  /// The version of the connected Manager. -1, and 0.0, without a link.
  int getServerVersion(std::int32_t& iMajor, std::int32_t& iMinor);

  // The stored properties: the extent, Server, Port, TimeOut, Blocking and TunnelPort. Loading puts them, and
  // nothing else; what can't be read gives `kFail` and puts nothing.

  QMStatus Save(std::vector<std::uint8_t>& stream);
  QMStatus Load(std::span<const std::uint8_t> stream);

  /// In the stream "Contents" of a storage. `kFail` when the storage fails.
  QMStatus Save(IQMPropertyStorage& storage);
  QMStatus Load(IQMPropertyStorage& storage);

  // The members.

  QMStatus get_Server(std::u16string& Hostname) override;
  QMStatus put_Server(const char16_t* Server) override;
  QMStatus get_Port(std::int32_t& Port) override;
  QMStatus put_Port(std::int32_t Port) override;
  QMStatus get_TunnelPort(std::int32_t& pTunnelPort) override;
  QMStatus put_TunnelPort(std::int32_t TunnelPort) override;
  QMStatus get_TimeOut(std::int32_t& TimeOut) override;
  QMStatus put_TimeOut(std::int32_t TimeOut) override;
  QMStatus get_Blocking(std::int32_t& Blocking) override;
  QMStatus put_Blocking(std::int32_t Blocking) override;
  QMStatus get_Status(std::int32_t& Status) override;
  QMStatus Connect(std::int32_t& Result) override;
  QMStatus Disconnect() override;
  QMStatus Rehash(std::int32_t& Result) override;
  QMStatus GetId(std::int32_t& pInterface) override;
  QMStatus DatabaseQuery(const char16_t* Criteria, std::int32_t& QueryId) override;
  QMStatus AlarmNamesQuery(std::int32_t& QueryId) override;
  QMStatus SourcesQuery(std::int32_t& QueryId) override;
  QMStatus AlarmLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) override;
  QMStatus ProtectedLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) override;
  QMStatus GetNext(std::int32_t QueryId, std::u16string& Item) override;
  QMStatus ReleaseQuery(std::int32_t QueryId) override;
  QMStatus Protect(const char16_t* SourceName, std::int32_t Fps, const char16_t* ProtectedIntervalStart,
                   const char16_t* ProtectedIntervalEnd, const char16_t* ValidityIntervalStart,
                   const char16_t* ValidityIntervalEnd, const char16_t* Details, std::int32_t& Res) override;
  QMStatus Unprotect(const char16_t* SourceName, std::int32_t Fps, const char16_t* ProtectedIntervalStart,
                     const char16_t* ProtectedIntervalEnd, std::int32_t& Res) override;
  QMStatus ExtractInteger(const char16_t* Parameter, const char16_t* Params, std::int32_t& Value) override;
  QMStatus ExtractString(const char16_t* Parameter, const char16_t* Params, std::u16string& Value) override;
  QMStatus LocalCopy(const char16_t* SourceName, std::int32_t Fps, const char16_t* BackupPath,
                     const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                     std::int32_t& Result) override;
  QMStatus RemoteCopy(const char16_t* SourceName, std::int32_t Fps, const char16_t* BackupPath,
                      const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                      std::int32_t& Result) override;
  QMStatus GetLastError(std::u16string& LastError) override;
  QMStatus Alarm(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                 const char16_t* AlarmIncidentDate, const char16_t* AlarmIntervalStart,
                 const char16_t* AlarmIntervalEnd, std::int32_t& Res) override;
  QMStatus Erase(const char16_t* SourceName, std::int32_t Fps, const char16_t* EraseIntervalStart,
                 const char16_t* EraseIntervalEnd, std::int32_t& Res) override;
  QMStatus AddFile(const char16_t* FileName, const char16_t* DiskSpaceName, const char16_t* SourceName,
                   const char16_t* AlarmName, const char16_t* StartDate, std::int32_t& ErrorCode) override;
  QMStatus RemoveAlarmByInterval(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                                 const char16_t* AlarmIntervalStart, const char16_t* AlarmIntervalEnd,
                                 std::int32_t& Res) override;
  QMStatus RemoveAlarmByDate(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                             const char16_t* AlarmIncidentDate, std::int32_t& Res) override;
  QMStatus RemoteCopyToProcess(const char16_t* SourceName, std::int32_t Fps, const char16_t* Format,
                               const char16_t* CommandLine, const char16_t* AdditionalEnvironmentVariables,
                               std::int32_t RedirectOutput, std::int32_t RedirectError,
                               const char16_t* BackupStartDate, const char16_t* BackupEndDate,
                               std::u16string& Result) override;
  QMStatus MetaDataLogQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) override;
  QMStatus SetMetaData(const char16_t* SourceName, std::int32_t Fps, const char16_t* IntervalStart,
                       const char16_t* IntervalEnd, const char16_t* Params, std::int32_t& Res) override;
  QMStatus UnsetMetaData(const char16_t* SourceName, std::int32_t Fps, const char16_t* IntervalStart,
                         const char16_t* IntervalEnd, const char16_t* Params, std::int32_t& Res) override;
  QMStatus ExtractBoolean(const char16_t* Parameter, const char16_t* Params, std::int32_t& Value) override;
  QMStatus ExtractNumber(const char16_t* Parameter, const char16_t* Params, float& Value) override;
  QMStatus HideIntervals(const char16_t* SourceName, std::int32_t Fps, const char16_t* Intervals,
                         std::int32_t& Result) override;
  QMStatus UnhideIntervals(const char16_t* SourceName, std::int32_t Fps, const char16_t* Intervals,
                           std::int32_t& Result) override;
  QMStatus AnalyticsSourceQuery(const char16_t* SourceName, std::int32_t Fps, std::int32_t& QueryId) override;
  QMStatus AnalyticsCreateQuery(const char16_t* SourceName, std::int32_t Fps, const char16_t* PluginType,
                                const char16_t* Criteria, std::int32_t& QueryId) override;
  QMStatus AnalyticsGetQueryStatus(std::int32_t QueryId, std::u16string& StatusInfo) override;
  QMStatus AnalyticsStartQuery(std::int32_t QueryId, std::int32_t& Result) override;
  QMStatus AnalyticsStopQuery(std::int32_t QueryId, std::int32_t& Result) override;
  QMStatus GetRecordingSize(const char16_t* SourceName, std::int32_t Fps, const char16_t* BackupStartDate,
                            const char16_t* BackupEndDate, std::int32_t& Result) override;

  // The link's events, on its event thread.

  void linkUp(JRPCController* pContext) override;
  void linkDown(JRPCController* pContext, JError* pError) override;

 private:
  template <typename Body>
  static QMStatus run(Body body) noexcept;
  template <typename Out, typename Failure, typename Result, typename... Parameters, typename... Arguments>
  QMStatus ask(Out& out, Failure failure, Result (IStorageAccessControl::*operation)(Parameters...),
               const Arguments&... arguments) noexcept;

  IConnectionPointImplMT m_events;
  std::uint32_t _cx;  ///< extent, hundredths of a millimetre
  std::uint32_t _cy;
  const std::unique_ptr<StorageAccessCtrlInterface> m_pStorageAccessCtrl;
};
