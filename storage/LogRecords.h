#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "storage/TimeSpan.h"

/// The records of a log: owned, in the order of the starts of their spans, equal starts in the order in which
/// they were put in, and with a cursor that walks them.
///
/// On the wire: "size", then each record under "set%u", counted from 0. `Record` has `coveredSpan`, its span
/// of media.
template <class Record>
class LogRecords {
  struct ByStart {
    bool operator()(const std::unique_ptr<Record>& pLeft, const std::unique_ptr<Record>& pRight) const {
      return pLeft->coveredSpan().startDate < pRight->coveredSpan().startDate;
    }
  };

 public:
  using Set = std::multiset<std::unique_ptr<Record>, ByStart>;

  /// The place of a record; good until that record goes.
  using Position = typename Set::const_iterator;

  LogRecords() = default;

  /// Copies every record; the cursor stands on the first one.
  LogRecords(const LogRecords& other) {
    for (const auto& pRecord : other.m_records) {
      append(std::make_unique<Record>(*pRecord));
    }
    rewind();
  }

  LogRecords& operator=(const LogRecords&) = delete;

  /// Both cursors go back to the first record.
  void swap(LogRecords& other) noexcept {
    m_records.swap(other.m_records);
    std::swap(m_bWhole, other.m_bWhole);
    rewind();
    other.rewind();
  }

  std::size_t size() const noexcept { return m_records.size(); }
  Position begin() const noexcept { return m_records.begin(); }
  Position end() const noexcept { return m_records.end(); }

  void rewind() const noexcept { m_cursor = m_records.begin(); }

  /// The record at the cursor, which moves on; null at the end.
  Record* next() const noexcept { return m_cursor == m_records.end() ? nullptr : (m_cursor++)->get(); }

  Position insert(std::unique_ptr<Record> pRecord) { return m_records.insert(std::move(pRecord)); }

  /// As `insert`, fast for a record that belongs at the end.
  Position append(std::unique_ptr<Record> pRecord) {
    if (m_records.empty() || !ByStart()(pRecord, *m_records.rbegin())) {
      return m_records.insert(m_records.end(), std::move(pRecord));
    }
    return insert(std::move(pRecord));
  }

  /// Deletes a record. A cursor that stands on it moves on.
  void erase(Position position) {
    if (m_cursor == position) {
      ++m_cursor;
    }
    m_records.erase(position);
  }

  /// Deletes all records.
  void clear() noexcept {
    m_records.clear();
    m_bWhole = true;
    rewind();
  }

  /// A record's place; the end when it isn't here.
  Position find(const Record* pRecord) const {
    for (Position position = m_records.begin(); position != m_records.end(); ++position) {
      if (position->get() == pRecord) {
        return position;
      }
    }
    return m_records.end();
  }

  /// Takes all records out and gives them to `visit` in order, which appends what is to stand in the log from
  /// now on. The cursor goes back to the first record. What `visit` throws leaves records out: see
  /// `isWhole`.
  template <class Visit>
  void rebuild(Visit visit) {
    Set old = std::exchange(m_records, {});
    rewind();
    m_bWhole = false;
    while (!old.empty()) {
      visit(std::move(old.extract(old.begin()).value()));
    }
    m_bWhole = true;
    rewind();
  }

  /// Whether no record was lost to a change that broke off for lack of memory.
  bool isWhole() const noexcept { return m_bWhole; }

  /// Throws JTextError when records were lost: they still stand in the file, which mustn't be replaced then.
  void checkWhole() const {
    if (!m_bWhole) {
      QM_THROW(JTextError, "A change of the log broke off, so it isn't written");
    }
  }

  /// Takes a span out of the records that `selects` names: one that lies inside it goes, one that reaches
  /// beyond it keeps what lies outside, as two records where it contains the span. The cursor goes back to
  /// the first record.
  template <class Selects>
  void takeOut(const TimeSpan& span, Selects selects);

  void serialise(JRPCSerialisation& target) const {
    target.serialise("size", static_cast<std::uint32_t>(size()));
    qm_utils::RpcSlotName slot("set");
    std::uint32_t uIndex = 0;
    for (const auto& pRecord : m_records) {
      target.serialise(slot.of(uIndex++), *pRecord);
    }
  }

  /// Deletes all records first. Those that were read before an error stay.
  void deserialise(JRPCDeserialisation& source) {
    clear();
    const std::uint32_t uSize = qm_utils::deserialiseSize(source);
    qm_utils::RpcSlotName slot("set");
    for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
      auto pRecord = std::make_unique<Record>();
      source.deserialise(slot.of(uIndex), *pRecord, true);
      append(std::move(pRecord));
    }
  }

 private:
  Set m_records;
  mutable Position m_cursor = m_records.end();
  bool m_bWhole = true;
};

template <class Record>
template <class Selects>
void LogRecords<Record>::takeOut(const TimeSpan& span, Selects selects) {
  if (span.endDate < span.startDate) {
    return;
  }
  rebuild([&](std::unique_ptr<Record> pRecord) {
    const TimeSpan whole = pRecord->coveredSpan();
    if (whole.endDate < span.startDate || span.endDate < whole.startDate || !selects(*pRecord)) {
      append(std::move(pRecord));
      return;
    }
    // The ends that are moved by one microsecond have another date beyond them, so neither of them wraps.
    if (whole.startDate < span.startDate) {
      auto pBefore = std::make_unique<Record>(*pRecord);
      pBefore->coveredSpan().endDate = JTime(span.startDate).subtract(1);
      append(std::move(pBefore));
    }
    if (span.endDate < whole.endDate) {
      pRecord->coveredSpan().startDate = JTime(span.endDate).add(1);
      append(std::move(pRecord));
    }
  });
}
