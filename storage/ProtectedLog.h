#pragma once

#include <memory>
#include <string>
#include <utility>

#include "storage/LogFile.h"
#include "storage/LogRecords.h"
#include "storage/TimeSpan.h"

/// Says that a span of media may not be erased for a span of real time. A plain value.
///
/// On the wire: "ProtectedStartDate", "ProtectedEndDate", "ValidityStartDate", "ValidityEndDate", "Details",
/// all required.
class ProtectedLogRecord : public JRPCObject {
 public:
  ProtectedLogRecord() : JRPCObject("ProtectedLogRecord") {}
  ProtectedLogRecord(const TimeSpan& media, const TimeSpan& validity, std::string sDetails);

  /// The row that a host gets:
  /// ProtectedStartDate="a",ProtectedEndDate="b",ValidityStartDate="c",ValidityEndDate="d",Details="e"
  std::string toString() const;

  void serialise(JRPCSerialisation& target) const override;
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  const TimeSpan& coveredSpan() const noexcept { return protectedSpan; }
  TimeSpan& coveredSpan() noexcept { return protectedSpan; }

  TimeSpan protectedSpan;  ///< media; its start isn't changed while the record stands in a log
  TimeSpan validitySpan;   ///< real time
  std::string details;     ///< free text of whoever protected
};

/// The protections of one stream, in the order of their starts: as an object on the wire, and on the
/// archive's side as a text file.
///
///     ProtectionPeriod=N                                        decimal, microseconds
///     START \t END \t VALID FROM \t VALID UNTIL \t DETAILS      a line each, of 384 bytes at most
///
/// The details are all that follows the fourth tab. They are cut where a line would become too long; a line
/// break in them can't be stored.
///
/// Operations with `bSave` throw what the storing throws (`LogFile::replace`); the change then stands in
/// memory alone. No lock: whoever owns the log gives it to one thread at a time.
class ProtectedLog : public JRPCObject {
 public:
  using Records = LogRecords<ProtectedLogRecord>;

  /// A log without file, for the wire.
  ProtectedLog() : JRPCObject("ProtectedLog") {}

  /// The log of a file, as `init` reads it.
  explicit ProtectedLog(const std::string& sFileName);

  /// Copies every record.
  ProtectedLog(const ProtectedLog& other) = default;
  ProtectedLog& operator=(const ProtectedLog&) = delete;

  /// Exchanges all that the two logs hold, the files that they belong to included.
  void swap(ProtectedLog& other) noexcept {
    m_records.swap(other.m_records);
    std::swap(m_file, other.m_file);
    std::swap(m_protectionPeriod, other.m_protectionPeriod);
    std::swap(m_prepostProtectionPeriod, other.m_prepostProtectionPeriod);
  }

  /// Reads the file, or makes it when there is none. Periods other than 0 go before those of the file. Never
  /// throws for a file: a failure is logged, what was read before it stays usable, and the file is then left
  /// as it is until an `init` reads it whole. Whether it was read.
  bool init(const std::string& sFileName, JTime protectionPeriod, JTime prepostProtectionPeriod = JTime(),
            LogFile::Leftovers leftovers = LogFile::Leftovers::kRemove);

  /// Whether the records are all that the file holds. If not, more may be protected than they say.
  bool isWhole() const noexcept { return m_file.isReplaceable() && m_records.isWhole(); }

  /// Whether the line of a record has room for all of its details.
  static bool hasRoomFor(const ProtectedLogRecord& record);

  /// With `bSave`, details that the file can't hold throw JTextError, and nothing changes.
  void addRecord(std::unique_ptr<ProtectedLogRecord> pRecord, bool bSave);
  void removeRecord(Records::Position position, bool bSave);

  /// Takes a span out of all protections. What stays of one keeps its validity and details.
  void removeSpan(const TimeSpan& span, bool bSave);

  /// Appends the protected spans, in order.
  void getSpans(TimeSpanList& list) const;

  /// Puts the cursor on the first record; needed after the log was read from the wire.
  void rewind() const noexcept { m_records.rewind(); }

  /// The record at the cursor, which moves on; null at the end. It stays the log's.
  ProtectedLogRecord* getNext() noexcept { return m_records.next(); }
  const ProtectedLogRecord* getNext() const noexcept { return m_records.next(); }

  const Records& getRecords() const noexcept { return m_records; }

  // Default lengths of protections; 0 when unset. The one of pre- and post-event recordings is never written.
  // The setters store the log.

  JTime getProtectionPeriod() const noexcept { return m_protectionPeriod; }
  JTime getPrepostProtectionPeriod() const noexcept { return m_prepostProtectionPeriod; }
  void setProtectionPeriod(JTime period);
  void setPrepostProtectionPeriod(JTime period);
  void setPeriods(JTime protection, JTime prepost);

  /// Reads the period alone out of a file. Throws JTextError when it holds none, JSysError when it can't be
  /// read.
  static JTime readProtectionPeriod(const std::string& sFileName);

  void serialise(JRPCSerialisation& target) const override { m_records.serialise(target); }
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

 private:
  void takeLine(std::string_view sLine);
  void save();

  Records m_records;
  LogFile m_file;
  JTime m_protectionPeriod;
  JTime m_prepostProtectionPeriod;
};
