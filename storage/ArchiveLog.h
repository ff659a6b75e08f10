#pragma once

#include <memory>
#include <string>

#include "storage/TimeSpan.h"

/// A record of an alarm log or a metadata log.
class ArchiveLogRecord {
 public:
  virtual ~ArchiveLogRecord() = default;

  /// The media span that the record is about.
  virtual TimeSpan getSpan() const = 0;

  /// Not on a record that stands in a log: logs are ordered by the start of the span.
  virtual void setSpan(const TimeSpan& span) = 0;

  /// The row that a host gets.
  virtual std::string toString() const = 0;

 protected:
  ArchiveLogRecord() = default;
  ArchiveLogRecord(const ArchiveLogRecord&) = default;
  ArchiveLogRecord& operator=(const ArchiveLogRecord&) = default;
};

/// A log that is walked through a virtual interface. It owns its records.
class ArchiveLog {
 public:
  virtual ~ArchiveLog() = default;

  /// Back to the first record.
  virtual void rewind() = 0;
  virtual void rewind() const = 0;

  /// The record at the cursor, which moves on; null at the end. The record stays the log's.
  virtual ArchiveLogRecord* getNext() = 0;
  virtual const ArchiveLogRecord* getNext() const = 0;

  /// Puts a record into the log, and with `bSave` stores the log.
  virtual void addRecord(std::unique_ptr<ArchiveLogRecord> pRecord, bool bSave) = 0;

  /// Deletes a record of this log, and with `bSave` stores the log.
  virtual void deleteRecord(ArchiveLogRecord* pRecord, bool bSave) = 0;

  /// Stores the log.
  virtual void save() = 0;

 protected:
  ArchiveLog() = default;
  ArchiveLog(const ArchiveLog&) = default;
  ArchiveLog& operator=(const ArchiveLog&) = default;
};
