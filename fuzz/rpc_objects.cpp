// A list from a peer, read as every container that travels. What is read must come back the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"

namespace {

/// Reads an object, writes it and reads it again.
template <typename Value, typename Ref>
void readBack(JRPCDeserialisation& source) {
  Value value;
  Ref ref(value);
  try {
    source.deserialise("X", ref, true);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return;
  }
  JParams params;
  JRPCSerialisation(&params).serialise("X", ref);
  Value again;
  Ref againRef(again);
  JRPCDeserialisation(&params, false).deserialise("X", againRef, true);
  if (again != value) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  using Pair = std::pair<int, std::string>;
  try {
    JRPCDeserialisation source(std::string_view(reinterpret_cast<const char*>(pData), uSize));
    readBack<std::vector<int>, jrpc_vector_ref<int>>(source);
    readBack<std::vector<Pair>, jrpc_vector_ref<Pair>>(source);
    readBack<std::map<std::string, std::vector<int>>, jrpc_map_ref<std::string, std::vector<int>>>(source);
    readBack<std::map<std::string, std::vector<Pair>>, jrpc_map_ref<std::string, std::vector<Pair>>>(source);
    jrpc_set<std::string> set;
    source.deserialise("X", set, false);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
  return 0;
}
