#pragma once

#include <cstddef>
#include <string>

#include "coreapi/qmutils/registry/registrytree.h"

class JISocket;
class JOSocket;

/// The text form of keys, REGEDIT4, and the copying of keys. The routines stand on the two interfaces alone
/// and so serve every tree. Without a tree they work on that of `JSystemRegistryKey`, and
/// what they change is in its file when they return; a failure to write the file is thrown.
///
/// Lines end in a line feed; CR LF is read as well.
///
///     REGEDIT4
///                                           an empty line
///     [HKEY_LOCAL_MACHINE\SOFTWARE\Some]    a key, before its sub-keys
///     "text"="anything"                     REG_SZ and REG_EXPAND_SZ; read as REG_SZ
///     "bytes"=hex:00,ff                     REG_BINARY
///     "number"=dword:000000ff               REG_DWORD
///     "list"="one","two"                    REG_MULTI_SZ; read as the REG_SZ one","two
///                                           an empty line behind the last value
///
/// There are no escapes: quotes, backslashes and line breaks stand as they are, in both directions. A text
/// may so hold quotes, but a line break cuts it.
namespace qm_utils {

/// Greatest length of a line that is read, in bytes: that of a request line at a server.
constexpr std::size_t kRegistryLineLimit = std::size_t{16} << 20;

/// Most names in the path of a key that is read; as many levels as the Win32 registry has.
constexpr std::size_t kRegistryDepthLimit = 512;

/// Reads keys and values in text form from a stream, to its end, into a tree. A text that begins with an HTTP
/// status line is read from behind its first empty line, so that a body can be taken as it arrives. With a
/// prefix that isn't null, the path of the first key is replaced by it in that key and all that follow.
///
/// A name of a value may stand without quotes, up to the first "=". Empty lines, lines that begin with ";"
/// and what stands before the first key are skipped. Any other line is a failure: `JTextError`, as for a line
/// beyond `kRegistryLineLimit`. What was read before a failure, the stream's own too, stays in the tree.
void importRegistry(const IRegistryTree& tree, JISocket& socket, const char* szPrefix = nullptr);
void importRegistry(JISocket& socket, const char* szPrefix = nullptr);

/// Writes a key with everything under it in text form to a stream. The path begins with the name of a root,
/// behind any leading backslashes; another one is a `JTextError` "unknown root key". A value of a type that
/// has no text form is a `JTextError` too; what stands before it was written by then.
void exportRegistry(const IRegistryTree& tree, JOSocket& socket, const std::string& sKeyPath);
void exportRegistry(JOSocket& socket, const std::string& sKeyPath);

/// Copies a key with its values and everything under it. Without `bMerge` the destination is deleted before;
/// with it, values and keys that the source doesn't have stay there. The source is read as a whole first, so
/// the two may lie inside each other. With `bTolerant` a source that doesn't exist gives false and changes
/// nothing; else it is a failure.
bool copyKey(const IRegistryTree& tree, RegistryRoot destinationRoot, const std::string& sDestination,
             RegistryRoot sourceRoot, const std::string& sSource, bool bMerge, bool bTolerant);
bool copyKey(RegistryRoot destinationRoot, const std::string& sDestination, RegistryRoot sourceRoot,
             const std::string& sSource, bool bMerge, bool bTolerant);

}  // namespace qm_utils
