#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class JParams;
class JVariant;
class JError;

/// The lines of the remote call protocol, apart from the connection that carries them.
///
///     request   NAME "(" PARAMETERS ")"
///               blanks and tabs may stand before NAME, behind it, and around the parameters;
///               NAME is letters, digits, "_" and bytes from 0x80 up; PARAMETERS is a parameter list
///     answer    "OK " PARAMETERS      the blank is there also when the list is empty
///               "FAILED " MESSAGE     free text of at most 504 bytes
///     check     "PING", answered by "PONG"
///
/// A line ends with CR LF, and holds no CR, LF or NUL.
namespace qm_utils::rpc_line {

inline constexpr std::string_view kPing = "PING";
inline constexpr std::string_view kPong = "PONG";
inline constexpr std::string_view kOk = "OK ";
inline constexpr std::string_view kFailed = "FAILED ";

/// Bytes of a failure's message, with the NUL that ends it.
inline constexpr std::size_t kMessageSize = 505;

/// A request taken apart; both texts lie in its line.
struct Request {
  std::string_view sFunction;
  std::string_view sParameters;
};

/// Takes a request line apart. Throws JRPCProtocolError with the line as detail: "function name syntax error"
/// (-2) for a line without a name or without the closing bracket, and for one with a NUL; "missing function
/// name" (-3) when no opening bracket follows the name.
Request splitRequest(std::string_view sLine);

/// Appends a request: NAME "(", then the text of a chain (null gives none), a text as it is, or the texts of
/// several chains joined by ",", then ")".
void appendCall(std::string& sLine, std::string_view sFunction, const JVariant* pChain);
void appendCall(std::string& sLine, std::string_view sFunction, std::string_view sParameters);
void appendCall(std::string& sLine, std::string_view sFunction, const std::vector<const JVariant*>& chains);

/// The text behind "OK " of an answer to a call. Throws JRPCCallFailedError with the whole line for one that
/// starts with "FAILED ", JRPCProtocolError with the function's name for anything else, a NUL in the line
/// included.
std::string_view answerText(std::string_view sLine, const char* szFunction);

/// The list of an answer. Throws as `answerText`, and JVariant::SyntaxError, which it logs.
std::unique_ptr<JParams> parseAnswer(std::string_view sLine, const char* szFunction);

/// Makes the line that tells a failure; line breaks in the error's text become blanks.
void writeFailure(std::string& sLine, const JError& error);

/// Whether a text can be a line: no CR, LF or NUL in it.
bool isOneLine(std::string_view sText) noexcept;

}  // namespace qm_utils::rpc_line
