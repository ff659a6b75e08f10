#include <gmock/gmock.h>
#include <string_view>

#include "coreapi/qmutils/rpc/owedanswers.h"

namespace {

using qm_utils::OwedAnswers;
using Request = OwedAnswers::Request;

OwedAnswers owed(std::initializer_list<Request> requests) {
  OwedAnswers answers;
  for (const Request request : requests) {
    answers.expect(request);
  }
  return answers;
}

TEST(OwedAnswers, TheNextLineAnswersARequestWhenNothingElseIsOwed) {
  EXPECT_TRUE(owed({Request::kCall}).settle("OK "));
  EXPECT_TRUE(owed({Request::kCall}).settle("PONG")) << "an answer out of form is still the answer";
  EXPECT_TRUE(owed({Request::kPing}).settle("PONG"));
  EXPECT_TRUE(owed({Request::kPing}).settle("pong"));
}

TEST(OwedAnswers, LateAnswersAreDroppedInTheOrderOfTheirRequests) {
  OwedAnswers answers = owed({Request::kCall, Request::kPing, Request::kCall});
  EXPECT_FALSE(answers.settle("OK late=1"));
  EXPECT_FALSE(answers.settle("PONG"));
  EXPECT_TRUE(answers.settle("OK mine=1"));
  answers.expect(Request::kCall);
  EXPECT_TRUE(answers.settle("OK next=1"));
}

TEST(OwedAnswers, APongSettlesWhatNeverCameBeforeIt) {
  OwedAnswers answers = owed({Request::kCall, Request::kCall, Request::kPing});
  EXPECT_TRUE(answers.settle("PONG"));
  answers = owed({Request::kCall, Request::kPing, Request::kCall});
  EXPECT_FALSE(answers.settle("PONG"));
  EXPECT_TRUE(answers.settle("OK mine=1"));
}

TEST(OwedAnswers, ANotificationIsUncertainUntilAPongStandsBehindIt) {
  for (const bool bAnswered : {false, true}) {
    OwedAnswers answers = owed({Request::kNotify});
    EXPECT_TRUE(answers.isUncertain());
    answers.expect(Request::kPing);
    if (bAnswered) {
      EXPECT_FALSE(answers.settle("FAILED unknown"));
    }
    EXPECT_TRUE(answers.settle("PONG"));
    EXPECT_FALSE(answers.isUncertain());
  }
}

TEST(OwedAnswers, EachOfSeveralPingsTakesItsOwnPong) {
  OwedAnswers answers = owed({Request::kNotify, Request::kPing, Request::kPing});
  EXPECT_FALSE(answers.settle("PONG"));
  EXPECT_TRUE(answers.settle("PONG"));
}

}  // namespace
