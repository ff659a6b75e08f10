#include "coreapi/qmxml/xmlparserref.h"

#include <atomic>
#include <libxml/parser.h>
#include <limits>
#include <mutex>

namespace {

/// Held while the library is set up or cleaned up, so that a second user finds it ready.
std::mutex g_mutex;
std::atomic<int> g_references{0};

}  // namespace

int xmlParserRefCounter() noexcept {
  return g_references.load();
}

int xmlInitParserQM() {
  const std::lock_guard lock(g_mutex);
  if (g_references == std::numeric_limits<int>::max()) {
    return -1;
  }
  if (g_references == 0) {
    xmlInitParser();
  }
  ++g_references;
  return 0;
}

int xmlCleanupParserQM() {
  const std::lock_guard lock(g_mutex);
  if (g_references == 0) {
    return -1;
  }
  if (--g_references == 0) {
    xmlCleanupParser();
  }
  return 0;
}
