// Naming file systems by the magic number the system reports for them
// (statfs), for np_fs_info: the type name and whether the file system is
// local, a file server's, a cluster's or a FUSE program's.
#ifndef QZBASE_SRC_PLATFORM_FS_H_
#define QZBASE_SRC_PLATFORM_FS_H_

#include <cstdint>

#include "qzbase/platform.h"

// Fills `info` for the file system whose magic number is `magic`. A number
// not in the table is a local file system named "0x" and the number in
// hexadecimal.
void npDescribeFileSystem(uint64_t magic, NpFsInfo* info);

#endif  // QZBASE_SRC_PLATFORM_FS_H_
