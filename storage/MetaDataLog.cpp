#include "storage/MetaDataLog.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/text/jglob.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/MetaDataMatch.h"
#include "storage/RowText.h"
#include "storage/RpcDate.h"

using qm_storage::deserialiseDate;
using qm_storage::serialiseDate;

namespace {

/// Records whose pairs are equal are joined when no more microseconds than these lie between them.
constexpr std::uint64_t kJoinGap = 1;

bool haveSamePairs(const JParams& left, const JParams& right) {
  if (left.getCount() != right.getCount()) {
    return false;
  }
  const std::vector<std::string> names = left.getNames();
  return std::all_of(names.begin(), names.end(), [&](const std::string& sName) {
    const JVariant* const pRight = right.find(sName);
    return pRight != nullptr && *left.find(sName) == *pRight;
  });
}

/// Whether the pairs can be read back from their text: a name may hold what the text has no room for, and the
/// text of an infinite number is none that a list can hold.
bool canBeStored(const JParams& pairs) {
  std::string sText;
  pairs.toText(sText);
  JParams read;
  try {
    read.parse(sText);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
  return qm_storage::fitsInLine(sText) && read.getNames() == pairs.getNames();
}

/// Throws JTextError for pairs that would be lost with their record when the file is read again.
void checkStorable(const JParams& pairs) {
  if (!canBeStored(pairs)) {
    QM_THROW(JTextError, "Metadata holds a key or a value that can't be stored");
  }
}

/// A date of a file. Those of clocks that weren't set, and open ends, become the current time.
JTime readDate(std::string_view sField) {
  const JTime date = qm_storage::readLogDate(sField);
  return date <= JTime::firstQueryTime() || date >= JTime::lastQueryTime() ? JTime::now() : date;
}

/// Builds the records of a log anew with a change of all that lies in a span. It walks the old records in
/// order; up to its place everything is done.
class SpanChange {
 public:
  /// `pFill` are the pairs of what no record covers; null leaves that uncovered.
  SpanChange(MetaDataLog::Records& records, const TimeSpan& span, const JParams* pFill)
      : m_records(records), m_place(span.startDate), m_end(span.endDate), m_pFill(pFill) {}

  /// `change` changes the pairs of a piece that lies in the span; what has none then goes.
  template <class Change>
  void apply(Change change) {
    m_records.rebuild([&](std::unique_ptr<MetaDataLogRecord> pRecord) { visit(std::move(pRecord), change); });
    if (m_place < m_end) {
      fill(m_end);
    }
    m_records.rewind();
  }

 private:
  template <class Change>
  void visit(std::unique_ptr<MetaDataLogRecord> pRecord, Change& change) {
    const TimeSpan whole = pRecord->span;
    if (m_place < m_end && m_end < whole.startDate) {
      fill(m_end);
      m_place = m_end;
    } else if (m_place < m_end && m_place < whole.startDate && m_place <= whole.endDate) {
      fill(JTime(whole.startDate).subtract(1));
      m_place = whole.startDate;
    }
    if (m_place < m_end && m_place <= whole.endDate) {
      split(*pRecord, change);
    } else {
      m_records.append(std::move(pRecord));
    }
  }

  template <class Change>
  void split(const MetaDataLogRecord& record, Change& change) {
    const TimeSpan whole = record.span;
    QM_ASSERT_AS(m_place <= whole.endDate, "oStart<=oRecordEnd");
    const JTime end = std::min(m_end, whole.endDate);
    QM_ASSERT_AS(m_place >= whole.startDate && end <= whole.endDate,
                 "oStart>=oRecordStart && oEnd<=oRecordEnd");
    if (whole.startDate < m_place) {
      put(whole.startDate, JTime(m_place).subtract(1), record.metaData);
    }
    JParams pairs = record.metaData;
    change(pairs);
    if (!pairs.isEmpty()) {
      put(m_place, end, pairs);
    }
    const JTime behind = JTime(end).add(1);  // all ones stays all ones
    if (end < whole.endDate) {
      put(behind, whole.endDate, record.metaData);
    }
    m_place = behind;
  }

  void fill(JTime end) {
    if (m_pFill != nullptr) {
      put(m_place, end, *m_pFill);
    }
  }

  void put(JTime start, JTime end, const JParams& pairs) {
    m_records.append(std::make_unique<MetaDataLogRecord>(TimeSpan(start, end), pairs));
  }

  MetaDataLog::Records& m_records;
  JTime m_place;
  const JTime m_end;
  const JParams* const m_pFill;
};

}  // namespace

MetaDataLogRecord::MetaDataLogRecord(const TimeSpan& media, const JParams& pairs)
    : JRPCObject("MetaDataLogRecord"), span(media), metaData(pairs) {}

std::string MetaDataLogRecord::toString() const {
  constexpr std::size_t kDatesSize = 96;
  std::string sRow = qm_storage::RowText(kDatesSize + metaData.getMaxLength())
                         .date("SpanStartDate", span.startDate)
                         .date("SpanEndDate", span.endDate)
                         .take();
  std::string sPairs;
  metaData.toText(sPairs);
  return sRow.append(1, ',').append(sPairs);
}

void MetaDataLogRecord::serialise(JRPCSerialisation& target) const {
  serialiseDate(target, "SpanStartDate", span.startDate);
  serialiseDate(target, "SpanEndDate", span.endDate);
  std::string sPairs;
  metaData.toText(sPairs);
  target.serialise("MetaData", sPairs);
}

void MetaDataLogRecord::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  deserialiseDate(source, "SpanStartDate", span.startDate);
  deserialiseDate(source, "SpanEndDate", span.endDate);
  std::string sPairs;
  source.deserialise("MetaData", sPairs, true);
  metaData.clear();
  metaData.parse(sPairs);
}

MetaDataLog::MetaDataLog(const std::string& sFileName) : MetaDataLog() {
  init(sFileName);
}

bool MetaDataLog::init(const std::string& sFileName, LogFile::Leftovers leftovers) {
  m_records.clear();
  bool bRead = false;
  try {
    m_file.read(
        sFileName, [this](std::string_view sLine) { takeLine(sLine); }, leftovers);
    join(kJoinGap);
    save();
    bRead = true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    // The text says "alarm" for this log too.
    qm_err::log(qm_err::kLogError, "init() - Error creating alarm log \"%s\": %s\n", sFileName.c_str(),
                error->getMessage().c_str());
  }
  rewind();
  return bRead;
}

void MetaDataLog::takeLine(std::string_view sLine) {
  const std::string sFile = m_file.getName();
  const std::size_t firstTab = sLine.find('\t');
  const std::size_t secondTab =
      firstTab == std::string_view::npos ? firstTab : sLine.find('\t', firstTab + 1);
  if (secondTab == std::string_view::npos) {
    qm_err::log(qm_err::kLogError, "init() - Error parsing metadata log - file: \"%s\", line: \"%s\".\n",
                sFile.c_str(), std::string(sLine).c_str());
    return;
  }
  try {
    const JTime start = readDate(sLine.substr(0, firstTab));
    const JTime end = readDate(sLine.substr(firstTab + 1, secondTab - firstTab - 1));
    JParams pairs;
    pairs.parse(sLine.substr(secondTab + 1));  // a value may hold tabs
    m_records.append(std::make_unique<MetaDataLogRecord>(TimeSpan(start, std::max(start, end)), pairs));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    qm_err::log(qm_err::kLogError,
                "init() - Error parsing metadata log - file: \"%s\", line: \"%s\", error: \"%s\".\n",
                sFile.c_str(), std::string(sLine).c_str(), error->getMessage().c_str());
  }
}

void MetaDataLog::save() {
  m_records.checkWhole();
  std::string sContent;
  std::string sPairs;
  for (const auto& pRecord : m_records) {
    for (const JTime date : {pRecord->span.startDate, pRecord->span.endDate}) {
      qm_storage::appendLogDate(sContent, date);
      sContent += '\t';
    }
    pRecord->metaData.toText(sPairs);
    sContent.append(sPairs).append("\r\n");
  }
  m_file.replace(sContent);
}

/// Joins neighbours with the same pairs and a gap of so many microseconds at most.
void MetaDataLog::join(std::uint64_t uGap) {
  MetaDataLogRecord* pLast = nullptr;
  m_records.rebuild([&](std::unique_ptr<MetaDataLogRecord> pNext) {
    if (pLast != nullptr) {
      QM_ASSERT_AS(pLast->span.endDate <= pNext->span.startDate, "qword(oPrevEnd)<=qword(oNextStart)");
      // Spans that overlap against the rule have a very large difference, and stay apart.
      if (pNext->span.startDate.wrappingDifference(pLast->span.endDate) <= uGap &&
          haveSamePairs(pLast->metaData, pNext->metaData)) {
        pLast->span.endDate = pNext->span.endDate;
        return;
      }
    }
    pLast = pNext.get();
    m_records.append(std::move(pNext));
  });
}

void MetaDataLog::addMetaData(const std::string& sPairs, const TimeSpan& span, bool bSave) {
  JParams pairs;
  pairs.parse(sPairs);
  if (bSave) {
    checkStorable(pairs);
  }
  SpanChange(m_records, span, pairs.isEmpty() ? nullptr : &pairs).apply([&pairs](JParams& old) {
    old.merge(pairs);
  });
  join(kJoinGap);
  if (bSave) {
    save();
  }
}

void MetaDataLog::removeMetaData(const std::vector<std::string>& names, const TimeSpan& span, bool bSave) {
  const bool bAll = names.size() == 1 && names.front() == "*";
  SpanChange(m_records, span, nullptr).apply([&](JParams& pairs) {
    for (const std::string& sKey : pairs.getNames()) {
      if (bAll || qm_storage::matchesAnyName(sKey, names)) {
        pairs.remove(sKey);
      }
    }
  });
  join(kJoinGap);
  if (bSave) {
    save();
  }
}

void MetaDataLog::removePairs(const JParams& pairs, const TimeSpan& span, bool bSave) {
  std::vector<JParams> each;
  for (const std::string& sKey : pairs.getNames()) {
    each.emplace_back().add(std::make_unique<JVariant>(*pairs.find(sKey)));
  }
  SpanChange(m_records, span, nullptr).apply([&](JParams& record) {
    for (const JParams& pair : each) {
      if (!qm_storage::matchesPairs(record, pair)) {
        continue;
      }
      for (const std::string& sKey : record.getNames()) {
        if (qm_storage::matchesAnyName(sKey, pair.getNames())) {
          record.remove(sKey);
        }
      }
    }
  });
  join(kJoinGap);
  if (bSave) {
    save();
  }
}

void MetaDataLog::replaceAll(const std::string& sPairs, const TimeSpanList& spans) {
  JParams pairs;
  pairs.parse(sPairs);
  Records records;
  for (const TimeSpan& span : spans) {
    records.append(std::make_unique<MetaDataLogRecord>(span, pairs));
  }
  m_records.swap(records);
  save();
}

void MetaDataLog::addRecord(std::unique_ptr<ArchiveLogRecord> pRecord, bool bSave) {
  auto* const pMetaData = dynamic_cast<MetaDataLogRecord*>(pRecord.get());
  JASSERT(pMetaData != nullptr);
  if (pMetaData == nullptr) {
    return;
  }
  if (bSave) {
    m_file.checkReplaceable();
    checkStorable(pMetaData->metaData);
  }
  static_cast<void>(pRecord.release());
  m_records.append(std::unique_ptr<MetaDataLogRecord>(pMetaData));
  if (bSave) {
    save();
  }
}

void MetaDataLog::deleteRecord(ArchiveLogRecord* pRecord, bool bSave) {
  const Records::Position position = m_records.find(dynamic_cast<MetaDataLogRecord*>(pRecord));
  JASSERT(position != m_records.end());
  if (position == m_records.end()) {
    return;
  }
  m_records.erase(position);
  if (bSave) {
    save();
  }
}

template <class Matches>
void MetaDataLog::appendSpans(TimeSpanList& list, Matches matches) const {
  for (const auto& pRecord : m_records) {
    if (matches(pRecord->metaData)) {
      list.push_back(pRecord->span);
    }
  }
}

void MetaDataLog::getSpans(TimeSpanList& list) const {
  appendSpans(list, [](const JParams&) { return true; });
}

void MetaDataLog::getSpans(TimeSpanList& list, const JParams& pairs) const {
  appendSpans(list, [&pairs](const JParams& metaData) { return qm_storage::matchesPairs(metaData, pairs); });
}

void MetaDataLog::getSpans(TimeSpanList& list, const std::vector<std::string>& names) const {
  const bool bAll = names.empty() || (names.size() == 1 && names.front() == "*");
  appendSpans(list, [&](const JParams& metaData) {
    const std::vector<std::string> keys = metaData.getNames();
    return bAll || std::any_of(keys.begin(), keys.end(), [&names](const std::string& sKey) {
             return qm_storage::matchesAnyName(sKey, names);
           });
  });
}

void MetaDataLog::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  m_records.deserialise(source);
}
