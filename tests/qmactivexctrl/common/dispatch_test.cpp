#include <gmock/gmock.h>

#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"
#include "tests/support/logcapture.h"

namespace {

using enum QMInvokeKind;

std::vector<std::string> tracesOf(const qm_test::LogCapture& log) {
  std::vector<std::string> traces;
  for (const qm_test::LoggedMessage& message : log.messages()) {
    if (message.level == qm_err::kLogActiveX) {
      EXPECT_EQ(message.file, "qm_atlcom_ext.cpp");
      EXPECT_GT(message.line, 0);
      traces.push_back(message.text);
    }
  }
  return traces;
}

QMVariant text(const char16_t* szText) {
  return QMVariant(std::u16string(szText));
}

TEST(Dispatch, TracesACallAndItsResult) {
  const std::string sCall = "IQMDispatchImpl<JQMStorageAccessCtrl>: Dispatching ";
  struct {
    std::int32_t iDispid;
    QMInvokeKind eKind;
    std::vector<QMVariant> arguments;
    bool bResult;
    std::string sCallTrace;
    std::string sResultTrace;
    QMStatus eStatus;
  } const rows[] = {
      {15,
       kMethod,
       {QMVariant(7)},
       true,
       "GetNext( QueryId = '7' (VT_I4) )",
       "Result hr = 0x00000000; pvarResult = '' (VT_BSTR)",
       QMStatus::kOk},
      {19,
       kMethod,
       {text(u"a"), text(u"a=5")},
       true,
       "ExtractInteger( Parameter = 'a' (VT_BSTR), Params = 'a=5' (VT_BSTR) )",
       "Result hr = 0x00000000; pvarResult = '5' (VT_I4)",
       QMStatus::kOk},
      {34,
       kMethod,
       {text(u"a"), text(u"a=0.1")},
       true,
       "ExtractNumber( Parameter = 'a' (VT_BSTR), Params = 'a=0.1' (VT_BSTR) )",
       "Result hr = 0x00000000; pvarResult = '0.1' (VT_R4)",
       QMStatus::kOk},
      {16,
       kMethod,
       {QMVariant(7)},
       false,
       "ReleaseQuery( QueryId = '7' (VT_I4) )",
       "Result hr = 0x00000000; pvarResult = 'null'",
       QMStatus::kOk},
      {7,
       kMethod,
       {},
       true,
       "Disconnect(  )",
       "Result hr = 0x00000000; pvarResult = 'Binary' (VT_EMPTY)",
       QMStatus::kOk},
      {1,
       kPropertyPut,
       {text(u"h\u00E9")},
       false,
       "Server( 'h\xC3\xA9' (VT_BSTR) )",
       "Result hr = 0x00000000; pvarResult = 'null'",
       QMStatus::kOk},
      {1,
       kPropertyGet,
       {},
       true,
       "Server(  )",
       "Result hr = 0x00000000; pvarResult = 'h\xC3\xA9' (VT_BSTR)",
       QMStatus::kOk},
      {2,
       kPropertyPut,
       {text(u"123")},
       false,
       "Port( '123' (VT_BSTR) )",
       "Result hr = 0x00000000; pvarResult = 'null'",
       QMStatus::kOk},
      {99,
       kMethod,
       {QMVariant(QMVarType::VT_UNKNOWN)},
       false,
       "DISPID = 99( '' (VT_UNKNOWN) )",
       "Result hr = 0x80020003; pvarResult = 'null'",
       QMStatus::kMemberNotFound},
      {5,
       kPropertyPut,
       {QMVariant(1)},
       false,
       "Status( '1' (VT_I4) )",
       "Result hr = 0x80020003; pvarResult = 'null'",
       QMStatus::kMemberNotFound},
      {15,
       kMethod,
       {},
       false,
       "GetNext(  )",
       "Result hr = 0x8002000E; pvarResult = 'null'",
       QMStatus::kBadParameterCount},
      {15,
       kMethod,
       {text(u"7x")},
       false,
       "GetNext( QueryId = '7x' (VT_BSTR) )",
       "Result hr = 0x80020005; pvarResult = 'null'",
       QMStatus::kTypeMismatch},
      {15,
       kMethod,
       {QMVariant(QMVarType(99))},
       false,
       "GetNext( QueryId = '' (Unknown) )",
       "Result hr = 0x80020005; pvarResult = 'null'",
       QMStatus::kTypeMismatch},
  };
  JQMStorageAccessCtrl control;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sCallTrace);
    const qm_test::LogCapture log;
    QMVariant result;
    EXPECT_EQ(control.Invoke(row.iDispid, row.eKind, row.arguments, row.bResult ? &result : nullptr),
              row.eStatus);
    EXPECT_THAT(tracesOf(log), testing::ElementsAre(sCall + row.sCallTrace, row.sResultTrace));
  }
  std::int32_t iPort = 0;
  control.get_Port(iPort);
  EXPECT_EQ(iPort, 123) << "a text that is a number goes where a number is wanted";
}

TEST(Dispatch, HandsTheOutValueIn) {
  JQMStorageAccessCtrl control;
  const QMVariant arguments[] = {text(u"b"), text(u"a=5")};
  QMVariant result(99);
  control.Invoke(19, kMethod, arguments, &result);
  EXPECT_EQ(result.toText(), "99");
  result = QMVariant();
  control.Invoke(19, kMethod, arguments, &result);
  EXPECT_EQ(result.toText(), "0");
}

/// Notes what it hears. It can take itself, or another sink, out while it is called, and throw.
class Listener : public IQMStorageAccessCtrlEvents {
 public:
  explicit Listener(std::vector<std::string>& heard, std::string sName, std::function<void()> then = {})
      : m_heard(heard), m_sName(std::move(sName)), m_then(std::move(then)) {}

  void LinkUp() override { hear("up"); }
  void LinkDown(const char16_t* TextError) override {
    hear("down " + QMVariant(std::u16string(TextError)).toText());
  }

 private:
  void hear(const std::string& sWhat) {
    m_heard.push_back(m_sName + " " + sWhat);
    if (m_then) {
      m_then();
    }
  }

  std::vector<std::string>& m_heard;
  std::string m_sName;
  std::function<void()> m_then;
};

TEST(Events, ReachTheSinksInTheOrderOfTheirConnection) {
  std::vector<std::string> heard;
  IConnectionPointImplMT events;
  std::uint32_t uThird = 0;
  std::uint32_t uFirst = 0;
  uFirst = events.Advise(std::make_shared<Listener>(heard, "first", [&] {
    events.Unadvise(uFirst);
    events.Unadvise(uThird);
    QM_THROW(JTextError, "a sink fails");
  }));
  events.Advise(
      std::make_shared<Listener>(heard, "second", [] { throw std::runtime_error("a sink fails"); }));
  uThird = events.Advise(std::make_shared<Listener>(heard, "third"));
  events.Advise(std::make_shared<Listener>(heard, "fourth"));
  EXPECT_EQ(events.Advise(nullptr), 0U);
  events.fire(qm_dispid::kLinkUp, {});
  const QMVariant error = text(u"lost");
  events.fire(qm_dispid::kLinkDown, std::span(&error, 1));
  EXPECT_THAT(heard, testing::ElementsAre("first up", "second up", "fourth up", "second down lost",
                                          "fourth down lost"));
  EXPECT_FALSE(events.Unadvise(uThird));
}

TEST(Events, AreTracedBeforeTheHostHearsThem) {
  JQMStorageAccessCtrl control;
  const qm_test::LogCapture log;
  std::size_t uTracesThen = 0;
  std::vector<std::string> heard;
  control.getEvents().Advise(
      std::make_shared<Listener>(heard, "host", [&] { uTracesThen = tracesOf(log).size(); }));
  control.linkUp(nullptr);
  EXPECT_EQ(uTracesThen, 1U);
  JTextError error("%s", "refused");
  control.linkDown(nullptr, &error);
  EXPECT_THAT(tracesOf(log),
              testing::ElementsAre("EventDispatchLog<JQMStorageAccessCtrl>: Firing event LinkUp ()",
                                   "EventDispatchLog<JQMStorageAccessCtrl>: Firing event LinkDown "
                                   "(TextError = 'refused' (VT_BSTR))"));
  EXPECT_THAT(heard, testing::ElementsAre("host up", "host down refused"));
}

}  // namespace
