#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "coreapi/qmutils/time/calendar.h"
#include "coreapi/qmutils/time/jtime.h"
#include "coreapi/qmutils/time/zonerules.h"

/// A `JTime` together with its calendar fields. What the fields mean, and how one side follows from the
/// other, is the derived class's: UTC or local time. The microseconds below the second stand in the `JTime`
/// alone. An object belongs to one thread at a time.
class JSplitTime {
 public:
  virtual ~JSplitTime() = default;

  /// Computes the fields from the time, which is moved into the range of 32-bit seconds for that.
  virtual void toFields() = 0;

  /// Computes the time from the fields, whatever numbers stand in them, and brings the fields into their
  /// ranges. The microseconds below the second stay as they are, and so does the zone's text. What no `JTime`
  /// can hold becomes the nearest one.
  virtual void fromFields() = 0;

  JTime getTime() const noexcept { return m_time; }

  /// Each of these changes the time, as the operation of `JTime` does, and then the fields.
  void setTime(JTime time);
  void setNow();
  void add(std::int64_t iMicroseconds);
  void subtract(std::int64_t iMicroseconds);
  void roundUp(JTime interval);
  void roundDown(JTime interval);
  void nextMultiple(JTime interval);
  void previousMultiple(JTime interval);

  const qm_utils::CalendarFields& getFields() const noexcept { return m_fields; }

  /// Stores the fields as they are; `fromFields` brings them together.
  void setFields(const qm_utils::CalendarFields& fields) noexcept { m_fields = fields; }

  /// 1 in daylight saving time, 0 outside it, -1 before a conversion.
  int getDaylight() const noexcept { return m_iDaylight; }

  const std::string& getZone() const noexcept { return m_sZone; }

  /// "%02d/%02d/%04d %02d:%02d:%02d.%06d%s": month (1 to 12), day, year, time of day, microseconds, zone. All
  /// three forms are cut at 49 characters.
  std::string toUSFormat() const;

  /// "%04u-%02u-%02u %02u:%02u:%02u.%06u %s": year, month, day, time of day, microseconds, zone.
  std::string toISOFormat() const;

  /// "%02u:%02u:%02u %02u/%02u/%04u": time of day, month, day, year.
  std::string toShortFormat() const;

  /// The three forms into a buffer, cut to `size` bytes with the NUL. A null buffer or a size of 0 writes
  /// nothing.
  void toUSFormat(char* szBuf, std::size_t size) const;
  void toISOFormat(char* szBuf, std::size_t size) const;
  void toShortFormat(char* szBuf, std::size_t size) const;

 protected:
  JSplitTime() = default;
  explicit JSplitTime(JTime time) noexcept : m_time(time) {}
  JSplitTime(const JSplitTime&) = default;
  JSplitTime& operator=(const JSplitTime&) = default;

  /// Stores the fields that a text holds in one of the three forms, found by the place of its separators.
  /// Fields that can't be read stay those of 01/01/1601 00:00:00.000000 and "UTC"; a text of 8 characters or
  /// fewer holds none. The digits behind the point are a number of microseconds, not a fraction. Numbers
  /// beyond 32 bits are the nearest one inside them.
  void readText(const char* szText);

  /// Stores the numbers as they are.
  void storeFields(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond, int iMicrosecond);

  /// Sets the time to a second since 1970, keeping the microseconds. Returns the second that the time lies in
  /// then, which is another one when no `JTime` holds what was asked for.
  std::int64_t storeSeconds(std::int64_t iSeconds) noexcept;

  /// The microseconds below the time's second.
  int microseconds() const noexcept;

  JTime m_time;
  qm_utils::CalendarFields m_fields;
  int m_iDaylight = -1;
  std::string m_sZone = "UTC";
};

/// The calendar in UTC. The zone that stands in a text is kept, not interpreted.
class JUTCSplitTime final : public JSplitTime {
 public:
  /// A time of 0.
  JUTCSplitTime();
  explicit JUTCSplitTime(JTime time);
  explicit JUTCSplitTime(const char* szText);
  JUTCSplitTime(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond, int iMicrosecond);

  void toFields() override;
  void fromFields() override;
};

/// The calendar in local time: in the process's zone (timezone.h) at the moment of each conversion, or in a
/// zone of its own when it is made with a name. Where the clock shows a time twice or not at all,
/// `ZoneRules::toUnixSeconds` says which instant it is. The zone that stands in a text is kept, not
/// interpreted; `toFields` puts the abbreviation in force in its place, with the sign of "GMT+" and "GMT-"
/// changed as in names of zones.
class JLocalSplitTime final : public JSplitTime {
 public:
  /// A time of 0.
  JLocalSplitTime();
  explicit JLocalSplitTime(JTime time, const std::string& sZoneName = {});
  explicit JLocalSplitTime(const char* szText, const std::string& sZoneName = {});
  JLocalSplitTime(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond, int iMicrosecond,
                  const std::string& sZoneName = {});

  void toFields() override;
  void fromFields() override;

 private:
  explicit JLocalSplitTime(const std::string& sZoneName);

  /// The rules to convert by now.
  std::shared_ptr<const qm_utils::ZoneRules> rules() const;

  std::shared_ptr<const qm_utils::ZoneRules> m_pOwnRules;  ///< null for the process's zone
};
