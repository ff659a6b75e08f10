#include "qmactivexctrl/common/qmmembertable.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

namespace {

// Parameters of the members: how each kind is taken from a variant, held during the call, and given back.

template <typename Parameter>
struct Slot;

template <>
struct Slot<const char16_t*> {
  static constexpr QMKind kKind = QMKind::kString;
  static constexpr bool kIsResult = false;
  bool take(const QMVariant& argument) { return argument.get(sValue); }
  const char16_t* get() { return sValue.c_str(); }
  std::u16string sValue;
};

template <>
struct Slot<std::int32_t> {
  static constexpr QMKind kKind = QMKind::kLong;
  static constexpr bool kIsResult = false;
  bool take(const QMVariant& argument) { return argument.get(iValue); }
  std::int32_t get() { return iValue; }
  std::int32_t iValue = 0;
};

template <typename Value, QMKind Kind>
struct ResultSlot {
  static constexpr QMKind kKind = Kind;
  static constexpr bool kIsResult = true;
  Value& get() { return value; }
  Value value{};
};

template <>
struct Slot<std::u16string&> : ResultSlot<std::u16string, QMKind::kString> {};
template <>
struct Slot<std::int32_t&> : ResultSlot<std::int32_t, QMKind::kLong> {};
template <>
struct Slot<float&> : ResultSlot<float, QMKind::kFloat> {};

template <typename Slots, std::size_t... Index>
bool takeArguments([[maybe_unused]] Slots& slots, [[maybe_unused]] std::span<const QMVariant> arguments,
                   std::index_sequence<Index...>) {
  return (std::get<Index>(slots).take(arguments[Index]) && ...);
}

/// The members' signatures say what the parameters are; nothing repeats it.
template <auto Member>
struct Binding;

template <typename... Parameters, QMStatus (IQMStorageAccessCtrl::*Member)(Parameters...)>
struct Binding<Member> {
  static constexpr std::size_t kResults = (std::size_t{Slot<Parameters>::kIsResult} + ... + 0);
  static constexpr std::size_t kArguments = sizeof...(Parameters) - kResults;

  static QMStatus call(IQMStorageAccessCtrl& control, std::span<const QMVariant> arguments,
                       QMVariant* pResult) {
    if (arguments.size() != kArguments) {
      return QMStatus::kBadParameterCount;
    }
    std::tuple<Slot<Parameters>...> slots;
    if (!takeArguments(slots, arguments, std::make_index_sequence<kArguments>())) {
      return QMStatus::kTypeMismatch;
    }
    if constexpr (kResults != 0) {
      if (pResult != nullptr) {
        pResult->get(std::get<kArguments>(slots).value);
      }
    }
    const QMStatus eStatus =
        std::apply([&](auto&... slot) { return (control.*Member)(slot.get()...); }, slots);
    if (pResult != nullptr) {
      if constexpr (kResults != 0) {
        *pResult = QMVariant(std::move(std::get<kArguments>(slots).value));
      } else {
        *pResult = QMVariant();
      }
    }
    return eStatus;
  }

  static constexpr QMMember describe(std::int32_t iDispid, const char* szName, QMInvokeKind eKind,
                                     std::initializer_list<const char*> names) {
    QMMember member;
    member.iDispid = iDispid;
    member.szName = szName;
    member.eKind = eKind;
    for (const char* szParameter : names) {
      member.parameterNames[member.uParameterNames++] = szParameter;
    }
    constexpr std::array<QMKind, sizeof...(Parameters)> kKinds{Slot<Parameters>::kKind...};
    member.uParameters = kArguments;
    std::copy_n(kKinds.begin(), kArguments, member.parameterKinds.begin());
    if constexpr (kResults != 0) {
      member.eResult = kKinds.back();
    }
    member.pCall = &call;
    return member;
  }
};

template <auto Member>
constexpr QMMember get(std::int32_t iDispid, const char* szName) {
  static_assert(Binding<Member>::kArguments == 0 && Binding<Member>::kResults == 1);
  return Binding<Member>::describe(iDispid, szName, QMInvokeKind::kPropertyGet, {});
}

template <auto Member>
constexpr QMMember put(std::int32_t iDispid, const char* szName) {
  static_assert(Binding<Member>::kArguments == 1 && Binding<Member>::kResults == 0);
  return Binding<Member>::describe(iDispid, szName, QMInvokeKind::kPropertyPut, {});
}

template <auto Member, typename... Names>
constexpr QMMember method(std::int32_t iDispid, const char* szName, Names... names) {
  static_assert(Binding<Member>::kArguments == sizeof...(Names));
  return Binding<Member>::describe(iDispid, szName, QMInvokeKind::kMethod, {names...});
}

using I = IQMStorageAccessCtrl;

// clang-format off
constexpr std::array<QMMember, 48> kMembers{{
    get<&I::get_Server>(1, "Server"),
    put<&I::put_Server>(1, "Server"),
    get<&I::get_Port>(2, "Port"),
    put<&I::put_Port>(2, "Port"),
    get<&I::get_TunnelPort>(42, "TunnelPort"),
    put<&I::put_TunnelPort>(42, "TunnelPort"),
    get<&I::get_TimeOut>(3, "TimeOut"),
    put<&I::put_TimeOut>(3, "TimeOut"),
    get<&I::get_Blocking>(4, "Blocking"),
    put<&I::put_Blocking>(4, "Blocking"),
    get<&I::get_Status>(5, "Status"),
    method<&I::Connect>(6, "Connect"),
    method<&I::Disconnect>(7, "Disconnect"),
    method<&I::Rehash>(8, "Rehash"),
    method<&I::GetId>(9, "GetId"),
    method<&I::DatabaseQuery>(10, "DatabaseQuery", "Criteria"),
    method<&I::AlarmNamesQuery>(11, "AlarmNamesQuery"),
    method<&I::SourcesQuery>(12, "SourcesQuery"),
    method<&I::AlarmLogQuery>(13, "AlarmLogQuery", "SourceName", "Fps"),
    method<&I::ProtectedLogQuery>(14, "ProtectedLogQuery", "SourceName", "Fps"),
    method<&I::GetNext>(15, "GetNext", "QueryId"),
    method<&I::ReleaseQuery>(16, "ReleaseQuery", "QueryId"),
    method<&I::Protect>(17, "Protect", "SourceName", "Fps", "ProtectedIntervalStart", "ProtectedIntervalEnd",
                        "ValidityIntervalStart", "ValidityIntervalEnd", "Details"),
    method<&I::Unprotect>(18, "Unprotect", "SourceName", "Fps", "ProtectedIntervalStart",
                          "ProtectedIntervalEnd"),
    method<&I::ExtractInteger>(19, "ExtractInteger", "Parameter", "Params"),
    method<&I::ExtractString>(20, "ExtractString", "Parameter", "Params"),
    method<&I::LocalCopy>(21, "LocalCopy", "SourceName", "Fps", "BackupPath", "BackupStartDate",
                          "BackupEndDate"),
    method<&I::RemoteCopy>(22, "RemoteCopy", "SourceName", "Fps", "BackupPath", "BackupStartDate",
                           "BackupEndDate"),
    method<&I::GetLastError>(23, "GetLastError"),
    method<&I::Alarm>(24, "Alarm", "SourceName", "Fps", "AlarmName", "AlarmIncidentDate",
                      "AlarmIntervalStart", "AlarmIntervalEnd"),
    method<&I::Erase>(25, "Erase", "SourceName", "Fps", "EraseIntervalStart", "EraseIntervalEnd"),
    method<&I::AddFile>(26, "AddFile", "FileName", "DiskSpaceName", "SourceName", "AlarmName", "StartDate"),
    method<&I::RemoveAlarmByInterval>(27, "RemoveAlarmByInterval", "SourceName", "Fps", "AlarmName",
                                      "AlarmIntervalStart", "AlarmIntervalEnd"),
    method<&I::RemoveAlarmByDate>(28, "RemoveAlarmByDate", "SourceName", "Fps", "AlarmName",
                                  "AlarmIncidentDate"),
    method<&I::RemoteCopyToProcess>(29, "RemoteCopyToProcess", "SourceName", "Fps", "Format", "CommandLine",
                                    "AdditionalEnvironmentVariables", "RedirectOutput", "RedirectError",
                                    "BackupStartDate", "BackupEndDate"),
    method<&I::MetaDataLogQuery>(30, "MetaDataLogQuery", "SourceName", "Fps"),
    method<&I::SetMetaData>(31, "SetMetaData", "SourceName", "Fps", "IntervalStart", "IntervalEnd", "Params"),
    method<&I::UnsetMetaData>(32, "UnsetMetaData", "SourceName", "Fps", "IntervalStart", "IntervalEnd",
                              "Params"),
    method<&I::ExtractBoolean>(33, "ExtractBoolean", "Parameter", "Params"),
    method<&I::ExtractNumber>(34, "ExtractNumber", "Parameter", "Params"),
    method<&I::HideIntervals>(35, "HideIntervals", "SourceName", "Fps", "Intervals"),
    method<&I::UnhideIntervals>(36, "UnhideIntervals", "SourceName", "Fps", "Intervals"),
    method<&I::AnalyticsSourceQuery>(37, "AnalyticsSourceQuery", "SourceName", "Fps"),
    method<&I::AnalyticsCreateQuery>(38, "AnalyticsCreateQuery", "SourceName", "Fps", "PluginType",
                                     "Criteria"),
    method<&I::AnalyticsGetQueryStatus>(39, "AnalyticsGetQueryStatus", "QueryId"),
    method<&I::AnalyticsStartQuery>(40, "AnalyticsStartQuery", "QueryId"),
    method<&I::AnalyticsStopQuery>(41, "AnalyticsStopQuery", "QueryId"),
    method<&I::GetRecordingSize>(43, "GetRecordingSize", "SourceName", "Fps", "BackupStartDate",
                                 "BackupEndDate"),
}};
// clang-format on

constexpr std::array<QMCallable, 2> kEvents{{
    {qm_dispid::kLinkUp, "LinkUp", {}, 0},
    {qm_dispid::kLinkDown, "LinkDown", {"TextError"}, 1},
}};

template <typename Wanted>
const QMMember* findMember(Wanted wanted, QMInvokeKind eKind) {
  const auto* const pFound = std::ranges::find_if(
      kMembers, [&](const QMMember& member) { return member.eKind == eKind && wanted(member); });
  return pFound != kMembers.end() ? pFound : nullptr;
}

}  // namespace

std::span<const QMMember> getControlMembers() noexcept {
  return kMembers;
}

std::span<const QMCallable> getControlEvents() noexcept {
  return kEvents;
}

const QMMember* findControlMember(std::int32_t iDispid, QMInvokeKind eKind) noexcept {
  return findMember([&](const QMMember& member) { return member.iDispid == iDispid; }, eKind);
}

const QMMember* findControlMember(std::string_view sName, QMInvokeKind eKind) noexcept {
  return findMember([&](const QMMember& member) { return member.szName == sName; }, eKind);
}
