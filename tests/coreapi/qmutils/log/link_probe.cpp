#include "coreapi/qmutils/error/loghook.h"

namespace {

struct Logging {
  Logging() { qm_err::log(qm_err::kLogWarning, "before main"); }
  ~Logging() { qm_err::log(qm_err::kLogWarning, "behind main"); }
};

const Logging g_logging;

}  // namespace

int main() {
  qm_err::log(qm_err::kLogError, "in %s", "main");
  return 0;
}
