#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "storage/ArchiveLog.h"
#include "storage/LogFile.h"
#include "storage/LogRecords.h"
#include "storage/TimeSpan.h"

/// Pairs of a key and a value that hold for a span of media.
///
/// On the wire: "SpanStartDate", "SpanEndDate", "MetaData" (the pairs as a parameter list), all required.
class MetaDataLogRecord : public ArchiveLogRecord, public JRPCObject {
 public:
  MetaDataLogRecord() : JRPCObject("MetaDataLogRecord") {}
  MetaDataLogRecord(const TimeSpan& media, const JParams& pairs);

  TimeSpan getSpan() const override { return span; }
  void setSpan(const TimeSpan& other) override { span = other; }

  /// SpanStartDate="a",SpanEndDate="b", and behind this comma the pairs as a parameter list.
  std::string toString() const override;

  void serialise(JRPCSerialisation& target) const override;

  /// Throws JVariant::SyntaxError when the pairs are no list.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  const TimeSpan& coveredSpan() const noexcept { return span; }
  TimeSpan& coveredSpan() noexcept { return span; }

  TimeSpan span;  ///< media; its start isn't changed while the record stands in a log
  JParams metaData;
};

/// The metadata of one stream, in the order of the spans, which don't overlap: a change that touches part of
/// a record splits it, and neighbours with the same pairs become one again. As an object on the wire, and on
/// the archive's side as a text file.
///
///     START \t END \t PAIRS \r\n      a line each
///
/// Operations with `bSave` throw what the storing throws (`LogFile::replace`); the change then stands in
/// memory alone. No lock: whoever owns the log gives it to one thread at a time, for walking it too.
class MetaDataLog : public ArchiveLog, public JRPCObject {
 public:
  using Records = LogRecords<MetaDataLogRecord>;

  /// A log without file, for the wire.
  MetaDataLog() : JRPCObject("MetaDataLog") {}

  /// The log of a file, as `init` reads it.
  explicit MetaDataLog(const std::string& sFileName);

  /// Copies every record.
  MetaDataLog(const MetaDataLog& other) = default;
  MetaDataLog& operator=(const MetaDataLog&) = delete;

  /// Exchanges all that the two logs hold, the files that they belong to included.
  void swap(MetaDataLog& other) noexcept {
    m_records.swap(other.m_records);
    std::swap(m_file, other.m_file);
  }

  /// Reads the file, or makes it when there is none. A line that can't be read is logged and skipped. Never
  /// throws for a file: a failure is logged, what was read before it stays usable, and the file is then left
  /// as it is until an `init` reads it whole. Whether it was read.
  bool init(const std::string& sFileName, LogFile::Leftovers leftovers = LogFile::Leftovers::kRemove);

  /// Adds pairs, a parameter list, to all that lies in a span; a key that is there takes the new value.
  /// Throws JVariant::SyntaxError when they are none, and with `bSave` JTextError when the file can't hold
  /// them (an infinite number); nothing changes then.
  void addMetaData(const std::string& sPairs, const TimeSpan& span, bool bSave);

  /// Removes keys, given as globs, from all that lies in a span; the single name "*" removes all. A piece
  /// that is left without pairs goes.
  void removeMetaData(const std::vector<std::string>& names, const TimeSpan& span, bool bSave);

  /// Removes pairs, each wherever `getSpans` finds it alone, from all that lies in a span.
  void removePairs(const JParams& pairs, const TimeSpan& span, bool bSave);

  /// Puts spans, in order and apart and all with the same pairs, in the place of all records, and stores the
  /// log.
  void replaceAll(const std::string& sPairs, const TimeSpanList& spans);

  void rewind() override { m_records.rewind(); }
  void rewind() const override { m_records.rewind(); }
  MetaDataLogRecord* getNext() override { return m_records.next(); }
  const MetaDataLogRecord* getNext() const override { return m_records.next(); }

  /// Inserts a record as it is: the caller sees to it that spans don't overlap. Null, and a record that is no
  /// MetaDataLogRecord, fail an assertion and add nothing. With `bSave`, keys and values that the file can't
  /// hold throw JTextError, and nothing changes.
  void addRecord(std::unique_ptr<ArchiveLogRecord> pRecord, bool bSave) override;

  /// A record of another log fails an assertion, and nothing changes.
  void deleteRecord(ArchiveLogRecord* pRecord, bool bSave) override;

  void save() override;

  const Records& getRecords() const noexcept { return m_records; }

  /// Appends the spans of all records, in order.
  void getSpans(TimeSpanList& list) const;

  /// Of the records that match all pairs; of all records when there are none. A pair matches when a key of
  /// the record matches its key as a glob, the types are the same or one of them is a text, and the record's
  /// value matches the pair's value: as a glob; or one of its elements, which ", " separates; or, for
  /// numbers, a range such as 5..7, where "*" is an open end.
  void getSpans(TimeSpanList& list, const JParams& pairs) const;

  /// Of the records that have a key that one of the names matches as a glob; of all records when there are no
  /// names, or the single name "*".
  void getSpans(TimeSpanList& list, const std::vector<std::string>& names) const;

  void serialise(JRPCSerialisation& target) const override { m_records.serialise(target); }
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

 private:
  template <class Matches>
  void appendSpans(TimeSpanList& list, Matches matches) const;
  void takeLine(std::string_view sLine);
  void join(std::uint64_t uGap);

  Records m_records;
  LogFile m_file;
};
