#include "coreapi/qmutils/error/jstackerror.h"

#include <cstdarg>

#include "coreapi/platform/clocale.h"

std::string StackError::push(const char* szFormat, ...) {
  char szText[2048];
  va_list arguments;
  va_start(arguments, szFormat);
  const int length = qm_platform::printC(szText, sizeof szText, szFormat, arguments);
  va_end(arguments);

  std::string sText(length < 0 ? szFormat : szText);
  m_messages.push_back(sText);
  if (m_messages.size() > m_capacity) {
    m_messages.pop_front();
  }
  return sText;
}

std::string StackError::pop() {
  if (m_messages.empty()) {
    return {};
  }
  std::string sNewest = std::move(m_messages.back());
  m_messages.pop_back();
  return sNewest;
}
