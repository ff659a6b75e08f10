#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "coreapi/qmutils/error/jlasterror.h"

namespace {

struct Values {
  std::string sClass;
  int iFirst = 99;
  int iSecond = 99;
  std::string sDescription;

  bool operator==(const Values&) const = default;
};

Values read() {
  Values values;
  qm_err::getLastError(values.sClass, values.iFirst, values.iSecond, values.sDescription);
  return values;
}

/// One test: the record that foreign threads share lives as long as the process, so the order matters.
TEST(LastError, BelongsToItsThreadAndForeignThreadsHaveOneOwner) {
  EXPECT_EQ(read(),
            (Values{"Error", 0, -1,
                    "Error reporting failed: qm_err::setLastError() has never been called in this thread."}));

  qm_err::setLastError("Mine", 1, 2, "text", 0);
  EXPECT_EQ(read(), (Values{"Mine", 1, 2, "text"}));
  qm_err::setLastError("Mine", 1, 2, "text", ENOENT);
  EXPECT_EQ(read(), (Values{"Mine", 1, 2, "No such file or directory. text"}));

  std::thread([] {
    EXPECT_EQ(read(),
              (Values{"Error", 0, -1,
                      "Error reporting failed: qm_err::set/getLastError() has been called from a thread that "
                      "is not created by the Quelmarin JThread class."}));
    testing::internal::CaptureStdout();
    qm_err::setLastError("Foreign", 3, 4, "lost", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "It seems that qm_err::setLastError() is called from non-Quelmarin threads !! Error reporting "
              "will not "
              "work properly !\n");

    qm_err::attachThread();
    EXPECT_EQ(read(), (Values{"Uninitialized", 0, 0, "Uninitialized"}));
    qm_err::setLastError("Attached", 5, 6, "kept", 0);
    EXPECT_EQ(read(), (Values{"Attached", 5, 6, "kept"}));
    qm_err::detachThread();
    EXPECT_EQ(read().sClass, "Error");
  }).join();

  EXPECT_EQ(read().sClass, "Mine");
}

}  // namespace
