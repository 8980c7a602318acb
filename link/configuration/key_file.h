#ifndef LINXIPC_LINK_CONFIGURATION_KEY_FILE_H
#define LINXIPC_LINK_CONFIGURATION_KEY_FILE_H

#include <optional>
#include <string>

namespace linx::link {

/// The secret key in a file. Nothing, with a reason in `trouble`, unless it belongs to this user or root and nobody
/// else may read it.
std::optional<std::string> readKeyFile(const std::string& path, std::string& trouble);

/// Makes a new file that only its owner can read. Never writes over another one: a key that is gone cannot be had
/// back.
bool writeKeyFile(const std::string& path, const std::string& secretKey, std::string& trouble);

}  // namespace linx::link

#endif
