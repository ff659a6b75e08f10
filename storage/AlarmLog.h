#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "storage/ArchiveLog.h"
#include "storage/LogFile.h"
#include "storage/LogRecords.h"
#include "storage/TimeSpan.h"

/// Says that a span of media carries a named alarm.
///
/// On the wire: "SpanStartDate", "SpanEndDate", "AlarmDate", "Name", all required.
class AlarmLogRecord : public ArchiveLogRecord, public JRPCObject {
 public:
  AlarmLogRecord() : JRPCObject("AlarmLogRecord") {}
  AlarmLogRecord(std::string sName, JTime raised, const TimeSpan& media);

  TimeSpan getSpan() const override { return span; }
  void setSpan(const TimeSpan& other) override { span = other; }

  /// Name="n",SpanStartDate="a",SpanEndDate="b",AlarmDate="c"
  std::string toString() const override;

  void serialise(JRPCSerialisation& target) const override;
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  const TimeSpan& coveredSpan() const noexcept { return span; }
  TimeSpan& coveredSpan() noexcept { return span; }

  std::string name;
  JTime alarmDate;  ///< when the alarm was raised
  TimeSpan span;    ///< media; its start isn't changed while the record stands in a log
};

/// The alarms of one stream, in the order of their starts: as an object on the wire, and on the archive's
/// side as a text file.
///
///     ALARM DATE \t NAME \t START \t END      a line each, of 255 bytes at most
///
/// Logs hold a limited number of records, the same limit for all logs of the process.
///
/// Operations with `bSave` throw what the storing throws (`LogFile::replace`); the change then stands in
/// memory alone. No lock but for what all logs share: whoever owns the log gives it to one thread at a time.
class AlarmLog : public JRPCObject {
 public:
  using Records = LogRecords<AlarmLogRecord>;

  static constexpr std::uint32_t kDefaultMaxRecords = 1000;

  /// A log without file, for the wire.
  AlarmLog() : JRPCObject("AlarmLog") {}

  /// The log of a file, as `init` reads it.
  explicit AlarmLog(const std::string& sFileName);

  /// Copies every record.
  AlarmLog(const AlarmLog& other);
  AlarmLog& operator=(const AlarmLog&) = delete;
  ~AlarmLog() override;

  /// Exchanges all that the two logs hold, the files that they belong to included.
  void swap(AlarmLog& other) noexcept {
    m_records.swap(other.m_records);
    std::swap(m_file, other.m_file);
    std::swap(m_uCounted, other.m_uCounted);
  }

  /// Reads the file, or makes it when there is none. Never throws for a file: a failure is logged, what was
  /// read before it stays usable, and the file is then left as it is until an `init` reads it whole. Whether
  /// it was read.
  bool init(const std::string& sFileName, LogFile::Leftovers leftovers = LogFile::Leftovers::kRemove);

  /// Adds a record as far as the limit allows: a full log drops its first record for it, or, as `setLimits`
  /// says, the new one. With `bSave`, a name that the file can't hold throws JTextError, and nothing changes.
  void addRecord(std::unique_ptr<AlarmLogRecord> pRecord, bool bSave);
  void removeRecord(Records::Position position, bool bSave);

  /// Takes a span out of the alarms whose name matches. What stays of one keeps its name and date.
  void removeSpan(const std::string& sNameGlob, const TimeSpan& span, bool bSave);

  /// Appends the spans of the alarms whose name matches, in order.
  void getSpans(TimeSpanList& list, const std::string& sNameGlob) const;

  /// Adds the names of all alarms.
  void getAlarmNames(std::set<std::string>& names) const;

  /// Ends at a date the alarms whose name matches and that reach beyond it; returns how many those were.
  std::uint32_t endAlarms(const std::string& sNameGlob, JTime date, bool bSave);

  /// Puts the cursor on the first record; needed after the log was read from the wire.
  void rewind() const noexcept { m_records.rewind(); }

  /// The record at the cursor, which moves on; null at the end. It stays the log's.
  AlarmLogRecord* getNext() noexcept { return m_records.next(); }
  const AlarmLogRecord* getNext() const noexcept { return m_records.next(); }

  const Records& getRecords() const noexcept { return m_records; }

  /// The limit of all logs of the process: records a log, 0 for no change, and whether a full log drops its
  /// first record (as at the start) or the new one. Logs that hold more already keep what they have. Any
  /// thread.
  static void setLimits(std::uint32_t uMaxRecords, bool bDropOldest);

  /// Records in all alarm logs of the process. Any thread.
  static std::uint64_t getTotalRecords();

  void serialise(JRPCSerialisation& target) const override { m_records.serialise(target); }

  /// Takes what was sent, whatever the limit is.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

 private:
  void takeLine(std::string_view sLine);
  void insertWithinLimit(std::unique_ptr<AlarmLogRecord> pRecord);
  void updateCount();
  void save();

  Records m_records;
  LogFile m_file;
  std::uint32_t m_uCounted = 0;  ///< this log's share in the total
};
