#include "storage/ProtectedLog.h"

#include <array>
#include <exception>
#include <optional>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "storage/RowText.h"
#include "storage/RpcDate.h"

using qm_storage::deserialiseDate;
using qm_storage::serialiseDate;

namespace {

constexpr std::string_view kPeriodKey = "ProtectionPeriod=";
constexpr std::string_view kPrepostPeriodKey = "PrepostProtectionPeriod=";

/// Bytes of a number in the file that are looked at.
constexpr std::size_t kMaxNumber = 32;

/// Bytes of a record's line, its end included.
constexpr std::size_t kMaxLine = 384;

constexpr std::size_t kDates = 4;

/// The dates of a record's line, and the details behind them.
struct LineFields {
  std::array<std::string_view, kDates> dates;
  std::string_view details;
};

/// Nothing for a line of fewer than four fields.
std::optional<LineFields> splitLine(std::string_view sLine) {
  LineFields fields;
  for (std::size_t i = 0; i < kDates; ++i) {
    const std::size_t tab = sLine.find('\t');
    if (tab == std::string_view::npos && i + 1 < kDates) {
      return std::nullopt;
    }
    fields.dates[i] = sLine.substr(0, tab);
    sLine = tab == std::string_view::npos ? std::string_view() : sLine.substr(tab + 1);
  }
  fields.details = sLine;
  return fields;
}

/// The decimal number behind a key. Throws JTextError when there is none.
JTime readPeriod(std::string_view sNumber) {
  JTime period;
  if (!period.fromText(std::string(sNumber.substr(0, kMaxNumber)).c_str())) {
    QM_THROW(JTextError, "no period");
  }
  return period;
}

/// Takes a period that stands in the file, unless there is one already.
void takePeriod(std::string_view sNumber, JTime& period) {
  try {
    const JTime read = readPeriod(sNumber);
    if (period == JTime()) {
      period = read;
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    period = JTime();
  }
}

void appendLine(std::string& sContent, const ProtectedLogRecord& record) {
  const std::size_t uStart = sContent.size();
  for (const JTime date : {record.protectedSpan.startDate, record.protectedSpan.endDate,
                           record.validitySpan.startDate, record.validitySpan.endDate}) {
    qm_storage::appendLogDate(sContent, date);
    sContent += '\t';
  }
  const std::size_t uDates = sContent.size() - uStart;
  qm_storage::appendLogText(sContent, record.details, kMaxLine - uDates - 1);
  sContent += '\n';
}

}  // namespace

ProtectedLogRecord::ProtectedLogRecord(const TimeSpan& media, const TimeSpan& validity, std::string sDetails)
    : JRPCObject("ProtectedLogRecord"),
      protectedSpan(media),
      validitySpan(validity),
      details(std::move(sDetails)) {}

std::string ProtectedLogRecord::toString() const {
  constexpr std::size_t kFixedSize = 240;
  return qm_storage::RowText(kFixedSize + details.size())
      .date("ProtectedStartDate", protectedSpan.startDate)
      .date("ProtectedEndDate", protectedSpan.endDate)
      .date("ValidityStartDate", validitySpan.startDate)
      .date("ValidityEndDate", validitySpan.endDate)
      .text("Details", details)
      .take();
}

void ProtectedLogRecord::serialise(JRPCSerialisation& target) const {
  serialiseDate(target, "ProtectedStartDate", protectedSpan.startDate);
  serialiseDate(target, "ProtectedEndDate", protectedSpan.endDate);
  serialiseDate(target, "ValidityStartDate", validitySpan.startDate);
  serialiseDate(target, "ValidityEndDate", validitySpan.endDate);
  target.serialise("Details", details);
}

void ProtectedLogRecord::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  source.deserialise("Details", details, true);
  deserialiseDate(source, "ProtectedStartDate", protectedSpan.startDate);
  deserialiseDate(source, "ProtectedEndDate", protectedSpan.endDate);
  deserialiseDate(source, "ValidityStartDate", validitySpan.startDate);
  deserialiseDate(source, "ValidityEndDate", validitySpan.endDate);
}

ProtectedLog::ProtectedLog(const std::string& sFileName) : ProtectedLog() {
  init(sFileName, JTime());
}

bool ProtectedLog::init(const std::string& sFileName, JTime protectionPeriod, JTime prepostProtectionPeriod,
                        LogFile::Leftovers leftovers) {
  m_records.clear();
  m_protectionPeriod = protectionPeriod;
  m_prepostProtectionPeriod = prepostProtectionPeriod;
  bool bRead = false;
  try {
    m_file.read(
        sFileName, [this](std::string_view sLine) { takeLine(sLine); }, leftovers);
    save();
    bRead = true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    qm_err::log(qm_err::kLogError, "init() - Error creating protected log \"%s\": %s\n", sFileName.c_str(),
                error->getMessage().c_str());
  }
  rewind();
  return bRead;
}

void ProtectedLog::takeLine(std::string_view sLine) {
  if (const std::optional<LineFields> fields = splitLine(sLine)) {
    const auto date = [&](std::size_t i) { return qm_storage::readLogDate(fields->dates[i]); };
    m_records.append(std::make_unique<ProtectedLogRecord>(
        TimeSpan(date(0), date(1)), TimeSpan(date(2), date(3)), std::string(fields->details)));
  } else if (sLine.starts_with(kPeriodKey)) {
    takePeriod(sLine.substr(kPeriodKey.size()), m_protectionPeriod);
  } else if (sLine.starts_with(kPrepostPeriodKey)) {
    takePeriod(sLine.substr(kPrepostPeriodKey.size()), m_prepostProtectionPeriod);
  } else {
    QM_THROW(JTextError, "parse error");
  }
}

void ProtectedLog::save() {
  m_records.checkWhole();
  std::string sContent(kPeriodKey);
  sContent.append(m_protectionPeriod.toText()).append(1, '\n');
  for (const auto& pRecord : m_records) {
    appendLine(sContent, *pRecord);
  }
  m_file.replace(sContent);
}

bool ProtectedLog::hasRoomFor(const ProtectedLogRecord& record) {
  std::string sLine;
  appendLine(sLine, record);
  return sLine.ends_with('\t' + record.details + '\n');
}

void ProtectedLog::addRecord(std::unique_ptr<ProtectedLogRecord> pRecord, bool bSave) {
  JASSERT(pRecord != nullptr);
  if (pRecord == nullptr) {
    return;
  }
  if (bSave) {
    m_file.checkReplaceable();
    if (!qm_storage::fitsInLine(pRecord->details)) {
      QM_THROW(JTextError, "The details of a protection can't hold a line break");
    }
  }
  m_records.append(std::move(pRecord));
  if (bSave) {
    save();
  }
}

void ProtectedLog::removeRecord(Records::Position position, bool bSave) {
  m_records.erase(position);
  if (bSave) {
    save();
  }
}

void ProtectedLog::removeSpan(const TimeSpan& span, bool bSave) {
  m_records.takeOut(span, [](const ProtectedLogRecord&) { return true; });
  if (bSave) {
    save();
  }
}

void ProtectedLog::getSpans(TimeSpanList& list) const {
  for (const auto& pRecord : m_records) {
    list.push_back(pRecord->protectedSpan);
  }
}

void ProtectedLog::setProtectionPeriod(JTime period) {
  setPeriods(period, m_prepostProtectionPeriod);
}

void ProtectedLog::setPrepostProtectionPeriod(JTime period) {
  setPeriods(m_protectionPeriod, period);
}

void ProtectedLog::setPeriods(JTime protection, JTime prepost) {
  m_protectionPeriod = protection;
  m_prepostProtectionPeriod = prepost;
  save();
}

JTime ProtectedLog::readProtectionPeriod(const std::string& sFileName) {
  std::optional<JTime> period;
  LogFile::forEachLine(sFileName, [&period](std::string_view sLine) {
    JTime read;
    if (sLine.starts_with(kPeriodKey) &&
        read.fromText(std::string(sLine.substr(kPeriodKey.size(), kMaxNumber)).c_str())) {
      period = read;
    }
  });
  if (!period) {
    QM_THROW(JTextError, "No Protection Period found in file " + sFileName);
  }
  return *period;
}

void ProtectedLog::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  m_records.deserialise(source);
}
