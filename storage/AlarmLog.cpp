#include "storage/AlarmLog.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/text/jglob.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "storage/RowText.h"
#include "storage/RpcDate.h"

using qm_storage::deserialiseDate;
using qm_storage::serialiseDate;

namespace {

/// Bytes of a record's line, its end included.
constexpr std::size_t kMaxLine = 255;

constexpr std::size_t kFields = 4;

/// What all alarm logs of the process share.
struct Shared {
  JMutex mutex;  ///< over the fields
  std::uint32_t uMaxRecords = AlarmLog::kDefaultMaxRecords;
  bool bDropOldest = true;
  std::uint64_t uTotal = 0;
};

/// Never destroyed, so that a log of static storage may count itself out at the end of the program.
Shared& shared() {
  static Shared& instance = *new Shared;
  return instance;
}

/// Nothing for a line that hasn't exactly four fields.
std::optional<std::array<std::string_view, kFields>> splitLine(std::string_view sLine) {
  if (std::count(sLine.begin(), sLine.end(), '\t') != kFields - 1) {
    return std::nullopt;
  }
  std::array<std::string_view, kFields> fields;
  for (std::string_view& sField : fields) {
    const std::size_t tab = std::min(sLine.find('\t'), sLine.size());
    sField = sLine.substr(0, tab);
    sLine.remove_prefix(std::min(tab + 1, sLine.size()));
  }
  return fields;
}

/// The line of a record; its name is cut where the line would become too long, never a date.
std::string lineOf(const AlarmLogRecord& record) {
  std::string sLine;
  std::string sDates;
  qm_storage::appendLogDate(sLine, record.alarmDate);
  for (const JTime date : {record.span.startDate, record.span.endDate}) {
    sDates += '\t';
    qm_storage::appendLogDate(sDates, date);
  }
  sLine += '\t';
  qm_storage::appendLogText(sLine, record.name, kMaxLine - sLine.size() - sDates.size() - 1, '\t');
  return sLine + sDates + '\n';
}

/// Whether a record's name stands in its line as it is.
bool isWhole(const AlarmLogRecord& record) {
  return lineOf(record).find('\t' + record.name + '\t') != std::string::npos;
}

}  // namespace

AlarmLogRecord::AlarmLogRecord(std::string sName, JTime raised, const TimeSpan& media)
    : JRPCObject("AlarmLogRecord"), name(std::move(sName)), alarmDate(raised), span(media) {}

std::string AlarmLogRecord::toString() const {
  constexpr std::size_t kFixedSize = 160;
  return qm_storage::RowText(kFixedSize + name.size())
      .text("Name", name)
      .date("SpanStartDate", span.startDate)
      .date("SpanEndDate", span.endDate)
      .date("AlarmDate", alarmDate)
      .take();
}

void AlarmLogRecord::serialise(JRPCSerialisation& target) const {
  serialiseDate(target, "SpanStartDate", span.startDate);
  serialiseDate(target, "SpanEndDate", span.endDate);
  serialiseDate(target, "AlarmDate", alarmDate);
  target.serialise("Name", name);
}

void AlarmLogRecord::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  source.deserialise("Name", name, true);
  deserialiseDate(source, "SpanStartDate", span.startDate);
  deserialiseDate(source, "SpanEndDate", span.endDate);
  deserialiseDate(source, "AlarmDate", alarmDate);
}

AlarmLog::AlarmLog(const std::string& sFileName) : AlarmLog() {
  init(sFileName);
}

AlarmLog::AlarmLog(const AlarmLog& other)
    : JRPCObject(other), m_records(other.m_records), m_file(other.m_file) {
  updateCount();
}

AlarmLog::~AlarmLog() {
  m_records.clear();
  updateCount();
}

bool AlarmLog::init(const std::string& sFileName, LogFile::Leftovers leftovers) {
  m_records.clear();
  bool bRead = false;
  try {
    m_file.read(
        sFileName, [this](std::string_view sLine) { takeLine(sLine); }, leftovers);
    save();
    bRead = true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    qm_err::log(qm_err::kLogError, "init() - Error creating alarm log \"%s\": %s\n", sFileName.c_str(),
                error->getMessage().c_str());
  }
  rewind();
  updateCount();
  return bRead;
}

void AlarmLog::takeLine(std::string_view sLine) {
  const auto fields = splitLine(sLine);
  if (!fields) {
    QM_THROW(JTextError, "parse error");
  }
  const auto date = [&](std::size_t i) { return qm_storage::readLogDate((*fields)[i]); };
  addRecord(std::make_unique<AlarmLogRecord>(std::string((*fields)[1]), date(0), TimeSpan(date(2), date(3))),
            false);
}

void AlarmLog::save() {
  m_records.checkWhole();
  std::string sContent;
  for (const auto& pRecord : m_records) {
    sContent += lineOf(*pRecord);
  }
  m_file.replace(sContent);
}

void AlarmLog::addRecord(std::unique_ptr<AlarmLogRecord> pRecord, bool bSave) {
  JASSERT(pRecord != nullptr);
  if (pRecord == nullptr) {
    return;
  }
  if (bSave) {
    m_file.checkReplaceable();
    if (!isWhole(*pRecord)) {
      QM_THROW(JTextError, "The name of an alarm is too long or holds a tab or a line break");
    }
  }
  insertWithinLimit(std::move(pRecord));
  if (bSave) {
    save();
  }
}

void AlarmLog::insertWithinLimit(std::unique_ptr<AlarmLogRecord> pRecord) {
  const JAutoLock lock(shared().mutex);
  const std::uint32_t uMax = shared().uMaxRecords;
  if (shared().bDropOldest) {
    m_records.append(std::move(pRecord));
    while (m_records.size() > uMax) {
      m_records.erase(m_records.begin());
    }
  } else if (m_records.size() < uMax) {
    m_records.append(std::move(pRecord));
  }
  updateCount();
}

void AlarmLog::updateCount() {
  const JAutoLock lock(shared().mutex);
  shared().uTotal -= m_uCounted;
  m_uCounted = static_cast<std::uint32_t>(m_records.size());
  shared().uTotal += m_uCounted;
}

void AlarmLog::removeRecord(Records::Position position, bool bSave) {
  m_records.erase(position);
  updateCount();
  if (bSave) {
    save();
  }
}

void AlarmLog::removeSpan(const std::string& sNameGlob, const TimeSpan& span, bool bSave) {
  m_records.takeOut(span, [&sNameGlob](const AlarmLogRecord& record) {
    return qm_utils::matchesGlob(sNameGlob, record.name);
  });
  updateCount();
  if (bSave) {
    save();
  }
}

void AlarmLog::getSpans(TimeSpanList& list, const std::string& sNameGlob) const {
  for (const auto& pRecord : m_records) {
    if (qm_utils::matchesGlob(sNameGlob, pRecord->name)) {
      list.push_back(pRecord->span);
    }
  }
}

void AlarmLog::getAlarmNames(std::set<std::string>& names) const {
  for (const auto& pRecord : m_records) {
    names.insert(pRecord->name);
  }
}

std::uint32_t AlarmLog::endAlarms(const std::string& sNameGlob, JTime date, bool bSave) {
  std::uint32_t uChanged = 0;
  for (const auto& pRecord : m_records) {
    if (pRecord->span.endDate > date && qm_utils::matchesGlob(sNameGlob, pRecord->name)) {
      pRecord->span.endDate = date;
      ++uChanged;
    }
  }
  if (uChanged != 0 && bSave) {
    save();
  }
  return uChanged;
}

void AlarmLog::setLimits(std::uint32_t uMaxRecords, bool bDropOldest) {
  const JAutoLock lock(shared().mutex);
  if (uMaxRecords > 0) {
    shared().uMaxRecords = uMaxRecords;
  }
  shared().bDropOldest = bDropOldest;
}

std::uint64_t AlarmLog::getTotalRecords() {
  const JAutoLock lock(shared().mutex);
  return shared().uTotal;
}

void AlarmLog::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  try {
    m_records.deserialise(source);
  } catch (...) {
    updateCount();
    throw;
  }
  updateCount();
}
