#pragma once

#include <functional>
#include <map>
#include <string>

class JParams;

namespace qm_manager {

class Request;

/// Runs one function of the Manager: reads the request, does the work and fills the answer. On the
/// connections' threads, many at once. What it throws goes to the client as the answer's "Error".
using Handler = std::function<void(const Request& request, JParams& answer)>;

/// The functions of the Manager by their names. Families of functions add theirs before it starts.
using Handlers = std::map<std::string, Handler, std::less<>>;

}  // namespace qm_manager
