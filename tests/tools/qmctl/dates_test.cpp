#include "tools/qmctl/dates.h"

#include <gtest/gtest.h>

#include "tools/qmctl/failure.h"

namespace {

TEST(Dates, AreReadInThreeForms) {
  struct {
    const char* szGiven;
    const char* szRead;  ///< null when it isn't a date
  } const rows[] = {
      {"03/03/2011 10:00:00.000000UTC", "03/03/2011 10:00:00.000000UTC"},
      {"3/3/2011 10:0:0.5", "03/03/2011 10:00:00.000005UTC"},  // a count of microseconds, not a fraction
      {"03/03/2011 10:00:00.000000 CET", nullptr},
      {"03/03/2011 10:00:00", nullptr},
      {"02/29/2011 10:00:00.000000UTC", nullptr},
      {"2011-03-03T10:00:00Z", "03/03/2011 10:00:00.000000UTC"},
      {"2011-03-03 10:00Z", "03/03/2011 10:00:00.000000UTC"},
      {"2011-03-03T10:00:00.5Z", "03/03/2011 10:00:00.500000UTC"},
      {"2012-02-29T23:59:59.999999Z", "02/29/2012 23:59:59.999999UTC"},
      {"2011-02-29T10:00:00Z", nullptr},
      {"2011-03-03T24:00:00Z", nullptr},
      {"2011-03-03T10:00:60Z", nullptr},
      {"2011-03-03T10:00:00.1234567Z", nullptr},
      {"2011-03-03T10:00:00", nullptr},
      {"2011-03-03T10:00:00+01:00", nullptr},
      {"1970-01-01T00:00:00Z", "01/01/1970 00:00:00.000000UTC"},
      {"1969-12-31T23:59:59.999999Z", nullptr},
      {"2038-01-19T03:14:07.999999Z", "01/19/2038 03:14:07.999999UTC"},
      {"2038-01-19T03:14:08Z", nullptr},
      {"@12943620000000000", "03/03/2011 10:00:00.000000UTC"},
      {"@", nullptr},
      {"@-1", nullptr},
      {"@99999999999999999999", nullptr},
      {"", nullptr},
      {"yesterday", nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szGiven);
    try {
      const std::string sRead = qmctl::toControlDate(row.szGiven);
      EXPECT_STREQ(sRead.c_str(), row.szRead);
    } catch (const qmctl::Failure& failure) {
      EXPECT_EQ(row.szRead, nullptr) << failure.what();
      EXPECT_EQ(failure.getStatus(), qmctl::kWrongUsage);
    }
  }
}

}  // namespace
