#pragma once

#include <cstdint>
#include <string>

#include "storage/IStorageRpcObject.h"
#include "storage/SearchIterator.h"
#include "storage/TimeSpan.h"

/// Says that one stream of one source holds data for one span.
///
/// Objects of a search have no lock: who holds them gives them to one thread at a time.
class StorageSearchItem : public IStorageRpcObject {
 public:
  // What a stream holds. Never renumber: rows show these numbers to hosts.
  static constexpr std::int32_t kAnyFile = 0;
  static constexpr std::int32_t kVideoFile = 1;
  static constexpr std::int32_t kAudioFile = 2;
  static constexpr std::int32_t kDataFile = 3;

  virtual const std::string& getSourceName() const = 0;

  /// The stream's frame rate key.
  virtual std::int32_t getFps() const = 0;

  /// By the start of the data type: "video", "audio" or "application"; 0 for all others.
  virtual std::int32_t getFileType() const = 0;

  /// The stream's MIME-like type.
  virtual const std::string& getDataType() const = 0;

  /// The row that a host gets: Sourcename="s",FileType=t,Fps=f,StartDate="a",EndDate="b". Made anew at each
  /// call.
  virtual std::string toString() const = 0;

  /// End minus start; 0 for a span whose end lies before its start.
  virtual JTime getDuration() const = 0;
  virtual const JTime& getStart() const = 0;
  virtual const JTime& getEnd() const = 0;
  virtual TimeSpan getSpan() const = 0;
};

/// What a search has found, in the order in which it was added; the set never sorts. It owns its items as
/// long as they are in it: its destructor deletes them, while `erase` and `clear` leave them to the caller.
class StorageSearchResultSet : public IStorageRpcObject {
 public:
  using ConstIterator = Cstit<StorageSearchResultSet, StorageSearchItem>;
  using Iterator = Stit<StorageSearchResultSet, StorageSearchItem>;

  /// The first item; the end when there is none.
  virtual Iterator begin() = 0;
  virtual ConstIterator begin() const = 0;

  /// The place of no item.
  virtual Iterator end() = 0;
  virtual ConstIterator end() const = 0;

  /// Appends an item and takes it over. Null fails an assertion and adds nothing.
  virtual void add(StorageSearchItem* pItem) = 0;

  virtual std::uint32_t size() const = 0;

  /// Empties the set; the items become the caller's.
  virtual void clear() = 0;

  /// The item of an index below the size; null, and a failed assertion, for another one.
  virtual StorageSearchItem* at(std::uint32_t uIndex) = 0;
  virtual const StorageSearchItem* at(std::uint32_t uIndex) const = 0;

  /// Takes an item out of the set and gives it to the caller; returns the place behind it. The end is
  /// ignored, and so is the place of another set, which fails an assertion.
  virtual Iterator erase(Iterator it) = 0;

  /// The item so many places from the start; null at or behind the end.
  virtual StorageSearchItem* nth(std::uint32_t uIndex) = 0;
  virtual const StorageSearchItem* nth(std::uint32_t uIndex) const = 0;

  /// The distance of a place from the start; of the end it is the size. Another set's place fails an
  /// assertion.
  virtual std::uint32_t indexOf(const Iterator& it) = 0;
  virtual std::uint32_t indexOf(const ConstIterator& it) const = 0;
};
