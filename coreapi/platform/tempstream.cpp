#include "coreapi/platform/tempstream.h"

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/filepath.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

int openUnnamedStream(const std::string& path, std::FILE*& stream) {
  stream = nullptr;
  std::string whole;  // another thread may change the current directory
  int error = absolutePath(path, whole);
  OpenedFile file;
  constexpr std::uint32_t kOwnerOnly = 0600;
  error =
      error != 0
          ? error
          : openFile(
                whole,
                {.access = FileAccess::kReadWrite, .creation = FileCreation::kNew, .permissions = kOwnerOnly},
                file);
  if (error != 0) {
    return error;
  }
  error = deleteOpened(file.descriptor, whole);
  error = error != 0 ? error : errorOfCall([&] {
    stream = ::fdopen(file.descriptor, "wb+");
    return stream != nullptr ? 0 : -1;
  });
  if (error != 0) {
    closeDescriptor(file.descriptor);
  }
  return error;
}

}  // namespace qm_platform
