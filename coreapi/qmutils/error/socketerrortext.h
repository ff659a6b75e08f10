#pragma once

#include <cstdint>
#include <string_view>

namespace qm_err {

/// Text of a socket error, by its Winsock number with or without the bit 0x40000000 that marks socket errors;
/// "Unknown socket error" for numbers without a text. Published numbers: the Windows Sockets error codes.
std::string_view socketErrorText(std::uint32_t uCode) noexcept;

}  // namespace qm_err
