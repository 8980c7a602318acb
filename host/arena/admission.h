#ifndef LINXIPC_HOST_ARENA_ADMISSION_H
#define LINXIPC_HOST_ARENA_ADMISSION_H

#include <sys/stat.h>

namespace linx {

/// Whether the directory can be trusted: others may not exchange its files.
inline bool keepsItsFiles(const struct stat& directory) {
    return (directory.st_mode & S_IWOTH) == 0 || (directory.st_mode & S_ISVTX) != 0;
}

/// Whether the file is for the domain's members alone: others may neither write to it nor have put it there, as far
/// as `user` can tell.
inline bool isForMembers(const struct stat& file, const struct stat& directory, uid_t user) {
    if ((file.st_mode & S_IWOTH) != 0) return false;
    const bool anybodyAdds = (directory.st_mode & S_IWOTH) != 0;
    return !anybodyAdds || file.st_uid == user || file.st_uid == directory.st_uid;
}

}  // namespace linx

#endif
