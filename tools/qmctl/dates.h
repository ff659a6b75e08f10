#pragma once

#include <string>

#include "coreapi/qmutils/time/jtime.h"

namespace qmctl {

/// The forms of a date, for help texts and messages.
constexpr const char* kDateForms =
    "MM/DD/YYYY HH:MM:SS.uuuuuuUTC, YYYY-MM-DDTHH:MM:SS[.uuuuuu]Z or @MICROSECONDS since 1601";

/// A date of the command line. Throws `Failure` (wrong usage) for what isn't one of the forms and for a day
/// that its month doesn't have.
JTime toTime(const std::string& sDate);

/// A date of the command line as the control takes it, such as "03/03/2011 10:00:00.000000UTC". Throws
/// `Failure` (wrong usage) for what isn't one of the forms, for a day that its month doesn't have, and for
/// a time that the system can't express.
std::string toControlDate(const std::string& sDate);

}  // namespace qmctl
