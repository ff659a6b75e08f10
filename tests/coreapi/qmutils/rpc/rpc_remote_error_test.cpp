#include <gmock/gmock.h>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcremoteerror.h"
#include "tests/support/logcapture.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;

TEST(RemoteError, WhatWasAddedIsReadBack) {
  const qm_test::LogCapture log;
  JParams params;
  EXPECT_TRUE(JRPCRemoteError::addError(params, 5, "disk", "full"));
  EXPECT_TRUE(JRPCRemoteError::addError(params, -6, "net", "gone"));
  std::string sText;
  params.toText(sText);
  EXPECT_EQ(sText,
            "_err_0_id=5, _err_0_msg=\"full\", _err_0_name=\"disk\", _err_1_id=-6, _err_1_msg=\"gone\", "
            "_err_1_name=\"net\"");
  const JRPCRemoteError error(&params);
  ASSERT_THAT(error.getErrors(), SizeIs(2));
  EXPECT_EQ(error.getErrors()[0].JError::getMessage(), "id(5), name(disk), message(full)\n");
  EXPECT_EQ(error.getErrors()[1].getId(), -6);
  EXPECT_TRUE(log.has(qm_err::kLogInfo, "addError: Adding remote error id(5),name(disk),message(full)\n"));
}

TEST(RemoteError, ReadingEndsAtTheFirstThatIsIncomplete) {
  JParams params;
  params.parse(R"(_err_0_id=1,_err_0_name="a",_err_0_msg="b",_err_1_id=2,_err_1_name="c",)"
               R"(_err_2_id=3,_err_2_name="d",_err_2_msg="e")");
  EXPECT_THAT(JRPCRemoteError(&params).getErrors(), SizeIs(1));
  params.parse(R"(_err_1_msg=[00])");
  EXPECT_THAT(JRPCRemoteError(&params).getErrors(), SizeIs(1));
}

TEST(RemoteError, ANullListIsLogged) {
  const qm_test::LogCapture log;
  EXPECT_THAT(JRPCRemoteError(nullptr).getErrors(), IsEmpty());
  EXPECT_TRUE(log.has(qm_err::kLogError, "JRPCRemoteError: JParams pointer is NULL!!!\n"));
}

}  // namespace
