#pragma once

#include <cstdint>
#include <memory>
#include <string>

// Reads of one parameter of a list's text. Each returns 0 when the parameter is there and converts, and sets
// the out value; otherwise -1, with the out value untouched. A null name or text gives -1. No exception
// leaves them: an error on the way is logged.

int extractBoolean(const char* szName, const char* szList, bool& bValue) noexcept;
int extractInteger(const char* szName, const char* szList, std::int32_t& iValue) noexcept;
int extractNumber(const char* szName, const char* szList, double& dValue) noexcept;

/// The text is a new copy, made by `new char[]`.
int extractString(const char* szName, const char* szList, std::unique_ptr<char[]>& szValue) noexcept;
int extractString(const char* szName, const char* szList, std::string& sValue) noexcept;
