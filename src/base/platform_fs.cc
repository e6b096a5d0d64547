#include "platform_fs.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

struct KnownFileSystem {
  uint64_t magic;
  const char* type;
  int kind;
};

// The magic numbers of the kernel's statfs (linux/magic.h and the file
// systems' own sources). The shared ones are the point of the table; the
// common local ones are named so that `qzvault info` can say what a vault
// is on.
const KnownFileSystem kKnownFileSystems[] = {
    // File servers.
    {0x6969, "nfs", NP_FS_NETWORK},
    {0x517B, "smb", NP_FS_NETWORK},
    {0xFF534D42, "cifs", NP_FS_NETWORK},
    {0xFE534D42, "smb2", NP_FS_NETWORK},
    {0x5346414F, "afs", NP_FS_NETWORK},
    {0x6B414653, "afs", NP_FS_NETWORK},
    {0x73757245, "coda", NP_FS_NETWORK},
    {0x564C, "ncp", NP_FS_NETWORK},
    {0x01021997, "9p", NP_FS_NETWORK},
    // Cluster file systems.
    {0x00C36400, "ceph", NP_FS_CLUSTER},
    {0x01161970, "gfs2", NP_FS_CLUSTER},
    {0x7461636F, "ocfs2", NP_FS_CLUSTER},
    {0x0BD00BD0, "lustre", NP_FS_CLUSTER},
    {0x47504653, "gpfs", NP_FS_CLUSTER},
    {0xAAD7AAEA, "panfs", NP_FS_CLUSTER},
    // Programs (GlusterFS, sshfs, s3fs and the like mount through FUSE).
    {0x65735546, "fuse", NP_FS_USERSPACE},
    // Local.
    {0xEF53, "ext4", NP_FS_LOCAL},
    {0x58465342, "xfs", NP_FS_LOCAL},
    {0x9123683E, "btrfs", NP_FS_LOCAL},
    {0x2FC12FC1, "zfs", NP_FS_LOCAL},
    {0xF2F52010, "f2fs", NP_FS_LOCAL},
    {0x01021994, "tmpfs", NP_FS_LOCAL},
    {0x858458F6, "ramfs", NP_FS_LOCAL},
    {0x794C7630, "overlay", NP_FS_LOCAL},
    {0x4D44, "vfat", NP_FS_LOCAL},
    {0x2011BAB0, "exfat", NP_FS_LOCAL},
    {0x5346544E, "ntfs", NP_FS_LOCAL},
    {0x9660, "iso9660", NP_FS_LOCAL},
    {0x73717368, "squashfs", NP_FS_LOCAL},
    {0x3153464A, "jfs", NP_FS_LOCAL},
    {0x52654973, "reiserfs", NP_FS_LOCAL},
};

}  // namespace

void npDescribeFileSystem(uint64_t magic, NpFsInfo* info) {
  for (const KnownFileSystem& known : kKnownFileSystems) {
    if (known.magic == magic) {
      std::snprintf(info->type, sizeof info->type, "%s", known.type);
      info->kind = known.kind;
      return;
    }
  }
  std::snprintf(info->type, sizeof info->type, "0x%" PRIx64, magic);
  info->kind = NP_FS_LOCAL;
}
