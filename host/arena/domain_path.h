#ifndef LINXIPC_HOST_ARENA_DOMAIN_PATH_H
#define LINXIPC_HOST_ARENA_DOMAIN_PATH_H

#include <string>

namespace linx {

/// Where the domain lies that $LINX_DOMAIN names: itself if absolute, "<default>.<word>" for a bare word, and
/// "/dev/shm/linx.<effective uid>" if unset or empty. Empty when it is neither a path nor a bare word.
std::string domainPath();

/// Opens the domain's directory, making it for this user alone when it is not there. -1 with errno: EACCES when it is
/// another user's and the path was ours to choose, ENOTDIR when something else lies there, a symbolic link included.
int openDomainDirectory(const std::string& path);

}  // namespace linx

#endif
