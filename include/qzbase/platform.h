// The portability layer: every file-system, directory, dynamic-loading, user,
// clock, sleep and mutex call of the library and its base layer goes through
// the np_* functions declared here, and they dispatch through one replaceable
// table of operations (NpPlatformOps). The table is this library's seam for
// fault injection: a test installs a table whose entries forward to the
// default ones except for the call it wants to fail.
//
// Result codes are small integers, 0 for success, mapped from the system's
// error numbers in exactly one place. Each operation documents the codes that
// callers interpret; np_fio_errdesc describes any of them.
//
// Thread safety: the np_* functions are safe to call from several threads.
// Replacing the table is not synchronised with calls in flight: tests replace
// it while no other thread uses the layer.
#ifndef QZBASE_PLATFORM_H_
#define QZBASE_PLATFORM_H_

#include <cstddef>
#include <cstdint>

#include "qzbase/export.h"

// ---------------------------------------------------------------------------
// Result codes of the file and directory operations.
enum NpResult {
  NP_OK = 0,
  NP_ERR_UNKNOWN = 1,        // any error without a code of its own
  NP_ERR_DIR_NOT_FOUND = 2,  // np_dir_open: the directory does not exist
  NP_ERR_NOT_FOUND = 3,      // no such file or directory
                             // (np_dir_open: the path is not a directory)
  NP_ERR_ACCESS = 4,         // permission denied
  NP_ERR_EXISTS = 5,         // the target exists (exclusive create, mkdir)
  NP_ERR_NOT_EMPTY = 6,      // directory not empty
  NP_ERR_NO_SPACE = 7,       // no space left, or quota exceeded
  NP_ERR_READ_ONLY_FS = 8,   // read-only file system
  NP_ERR_NAME_TOO_LONG = 9,  // a name or the path is too long
  NP_ERR_BUSY = 10,          // resource busy
  NP_ERR_IO = 11,            // input/output error
  NP_ERR_CROSS_DEVICE = 12,  // rename across file systems
  NP_ERR_INVALID_PATH = 13,  // invalid path: a directory moved below itself, a
                             // component that is not a directory, a bad name
  NP_ERR_IS_DIRECTORY = 14,  // a file operation on a directory
  NP_ERR_TOO_MANY_FILES = 15,
  NP_ERR_NO_MEMORY = 16,
  NP_ERR_BUFFER = 17,        // an output buffer is too small or null
  NP_ERR_NOT_REGULAR = 18,   // not a regular file (a fifo, a device, a socket)
  NP_ERR_IS_LINK = 19,       // a symbolic link where none may be followed
};

// np_dir_open: the directory is not a directory (shares its number with
// NP_ERR_NOT_FOUND, which np_dir_open does not use).
#define NP_ERR_NOT_A_DIRECTORY 3
// np_dso_load: the library was opened but is not usable; the handle is valid
// and must be given to np_dso_unload.
#define NP_DSO_LOADED_UNUSABLE 3

// Entry types of NpStat and NpDirEntry.
enum NpEntryType {
  NP_TYPE_FILE = 0,
  NP_TYPE_DIRECTORY = 1,
  NP_TYPE_OTHER = 2,  // device, socket, fifo, dangling link
  // Reported only where links are not followed (np_fio_lstat, np_fio_finfo,
  // listings opened with NP_DIR_NOFOLLOW); NpStat never holds them.
  NP_TYPE_LINK = 3,    // a symbolic link
  NP_TYPE_FIFO = 4,    // np_fio_lstat and np_fio_finfo only; listings say OTHER
  NP_TYPE_DEVICE = 5,  // np_fio_lstat and np_fio_finfo only
  NP_TYPE_SOCKET = 6,  // np_fio_lstat and np_fio_finfo only
};

// The status of a path. Links are followed. The first field is the time of the
// last status change (the nearest the platform comes to a creation time).
struct NpStat {
  int64_t ctime;  // seconds since the epoch: last status change
  int64_t mtime;  // seconds since the epoch: last modification of the content
  int64_t atime;  // seconds since the epoch: last access
  uint64_t size;  // bytes
  int type;       // NpEntryType
  unsigned mode;  // permission bits (0777 and the like)
};

// The status of a path without following a final symbolic link, or of an
// open file, with what tells two names of one file apart from two files.
struct NpFileInfo {
  int64_t mtime;    // seconds since the epoch: last modification of the content
  int64_t ctime;    // seconds since the epoch: last status change
  uint64_t size;    // bytes
  int type;         // NpEntryType, NP_TYPE_LINK and the special types included
  unsigned mode;    // permission bits (0777 and the like)
  uint64_t device;  // the file system that holds the file
  uint64_t inode;   // the file within it: equal device and inode, one file
  uint64_t links;   // how many names the file has
};

// One directory entry as returned by np_dir_next_stat.
struct NpDirEntry {
  int64_t mtime;  // seconds since the epoch
  int64_t ctime;
  uint64_t size;
  int type;       // NpEntryType; 1 is a directory
};

// np_fio_open flags.
#define NP_FIO_READ 1
#define NP_FIO_WRITE 2
#define NP_FIO_CREATE_NEW 4   // create the file; fail with NP_ERR_EXISTS if it exists
#define NP_FIO_CREATE 8       // create the file if it does not exist
#define NP_FIO_TRUNCATE 16
#define NP_FIO_NOFOLLOW 32    // refuse a final symbolic link (NP_ERR_IS_LINK) and
                              // anything but a regular file (NP_ERR_NOT_REGULAR),
                              // without waiting on a fifo
#define NP_FIO_PROBE 128      // only test that the file can be opened so; no handle
// The combinations the library uses.
#define NP_FIO_LOCKFILE 6     // WRITE | CREATE_NEW: lock files
#define NP_FIO_PROBE_WRITE 130  // PROBE | WRITE: is the file writable?

// np_dir_open flags. 0 only tests that the directory exists (the handle must
// still be closed). Without FILES or DIRS, or with both, every entry is listed.
#define NP_DIR_LIST 1   // list the entries
#define NP_DIR_FILES 2  // regular files only
#define NP_DIR_STAT 4   // np_dir_next_stat fills the entry status
#define NP_DIR_DIRS 16  // directories only
#define NP_DIR_NOFOLLOW 32  // entries are not followed: a symbolic link is listed as
                            // NP_TYPE_LINK (never as the file or directory it
                            // names) and is neither a file nor a directory for
                            // NP_DIR_FILES and NP_DIR_DIRS. The directory itself
                            // is opened as named.

// np_dir_create modes.
#define NP_DIR_CREATE_ONE 0      // create one directory; its parent must exist
#define NP_DIR_CREATE_PARENTS 8  // create missing parent directories too

// np_fio_chperm selectors: who, how, what.
#define NP_PERM_ALL 1      // who: owner, group and others
#define NP_PERM_OWNER 2    // who: the owner only
#define NP_PERM_ADD 1      // how: add the permission
#define NP_PERM_REMOVE 2   // how: remove it
#define NP_PERM_WRITE 1    // what: write permission
#define NP_PERM_READ 2     // what: read permission
#define NP_PERM_EXECUTE 4  // what: execute permission

// np_fs_info: what kind of file system holds a path.
#define NP_FS_LOCAL 0      // a disk, memory or overlay file system of this machine
#define NP_FS_NETWORK 1    // a file server's: NFS, SMB/CIFS, AFS, 9p and the like
#define NP_FS_CLUSTER 2    // a cluster file system: CephFS, GFS2, OCFS2, Lustre, GPFS
#define NP_FS_USERSPACE 3  // FUSE: a program's, often over the network (sshfs, s3fs)

// The file system that holds a path.
struct NpFsInfo {
  char type[32];  // its type as the system names it: "ext4", "nfs", "cifs",
                  // "ceph", "fuse"; "0x" and the hexadecimal magic number of a
                  // type this layer does not know
  int kind;       // NP_FS_*
};

// The longest path the library builds; name buffers are allocated with it.
#define NP_PATH_MAX 4096
// The longest file name (one path component) in bytes.
#define NP_NAME_MAX 255

typedef struct NpFile NpFile;
typedef struct NpDir NpDir;
typedef struct NpDso NpDso;

// ---------------------------------------------------------------------------
// The operation table. Every entry is set in the default table; a replacement
// table must set every entry too (copy the default and change what you need).
struct NpPlatformOps {
  int (*fio_stat)(const char* path, NpStat* st);
  int (*fio_rename)(const char* oldPath, const char* newPath);
  int (*fio_unlink)(const char* path);
  int (*fio_open)(const char* path, int flags, NpFile** handle);
  int (*fio_close)(NpFile* handle);
  int (*fio_chperm)(const char* path, int who, int how, int what);
  int (*dir_open)(const char* path, int flags, NpDir** handle);
  int (*dir_next)(NpDir* handle, char* name, std::size_t nameLength);
  int (*dir_next_stat)(NpDir* handle, char* name, std::size_t nameLength, NpDirEntry* entry);
  int (*dir_close)(NpDir* handle);
  int (*dir_create)(const char* path, int mode);
  int (*dir_unlink)(const char* path);
  int (*dso_load)(const char* path, int flags, NpDso** handle);
  void* (*dso_getsym)(NpDso* handle, const char* name);
  int (*dso_unload)(NpDso* handle);
  int (*osinf_user)(char* buffer, std::size_t length);
  int (*proc_sleep)(int seconds);
  int64_t (*time_now)(void);
  void* (*mutex_create)(int processShared, int recursive);
  int (*mutex_lock)(void* mutex, int wait);
  int (*mutex_unlock)(void* mutex);
  void (*mutex_destroy)(void* mutex);
  // Appended after the first set of entries, so that tables written against
  // them keep their order.
  int (*fio_link)(const char* existingPath, const char* newPath);
  // Appended for links, renames that never replace, lock holder records and
  // stale-lock detection.
  int (*fio_lstat)(const char* path, NpFileInfo* info);
  int (*fio_finfo)(NpFile* handle, NpFileInfo* info);
  int (*fio_rename_noreplace)(const char* oldPath, const char* newPath);
  int (*fio_read)(NpFile* handle, void* buffer, std::size_t length, std::size_t* got);
  int (*fio_write)(NpFile* handle, const void* data, std::size_t length);
  int (*fio_trylock)(NpFile* handle);
  int (*osinf_host)(char* buffer, std::size_t length);
  int64_t (*proc_id)(void);
  int (*proc_probe)(int64_t processId, uint64_t* startToken);
  // Appended for vaults shared across machines.
  int (*fs_info)(const char* path, NpFsInfo* info);
};

// The POSIX table.
QZBASE_EXPORT const NpPlatformOps* npDefaultPlatformOps(void);
// The table in force.
QZBASE_EXPORT const NpPlatformOps* npGetPlatformOps(void);
// Installs `ops` (which must stay valid while installed) and returns the table
// it replaces; null restores the default table.
QZBASE_EXPORT const NpPlatformOps* npSetPlatformOps(const NpPlatformOps* ops);

// ---------------------------------------------------------------------------
// Files.

// 0 when the path exists (filling *st when given); NP_ERR_NOT_FOUND (3) when it
// does not; another code when it cannot be examined.
QZBASE_EXPORT int np_fio_stat(const char* path, NpStat* st);
// 0 on success; 3 source not found, 4 access denied, 5 target is a non-empty
// directory, 13 invalid path (a directory below itself, a component that is
// not a directory), 12 across file systems, and the other codes.
QZBASE_EXPORT int np_fio_rename(const char* oldPath, const char* newPath);
// 0 on success; 3 when there was no such file; 14 for a directory.
QZBASE_EXPORT int np_fio_unlink(const char* path);
// Gives the existing file `existingPath` the further name `newPath` (a hard
// link; both names then stand for one file). Fails, leaving `newPath` as it
// was, when `newPath` exists: this is how a fully built file is published
// under a name that competing processes may also be publishing. 0 on success;
// 5 when `newPath` exists; 3 when `existingPath` does not; 4 or 1 when links
// are refused (as where the file system has no hard links); 12 across file
// systems; the other codes.
QZBASE_EXPORT int np_fio_link(const char* existingPath, const char* newPath);
// The status of `path` without following a final symbolic link (a link is
// NP_TYPE_LINK; fifos, devices and sockets have types of their own). 0, or
// NP_ERR_NOT_FOUND (3) when nothing has that name, or another code.
QZBASE_EXPORT int np_fio_lstat(const char* path, NpFileInfo* info);
// The status of an open file, as np_fio_lstat. 0 or a code.
QZBASE_EXPORT int np_fio_finfo(NpFile* handle, NpFileInfo* info);
// Renames like np_fio_rename, but never replaces: when `newPath` exists
// (whatever it is) nothing changes and the result is NP_ERR_EXISTS (5). The
// test and the rename are one step where the file system offers it;
// elsewhere a file is given its new name as a second link before the old one
// is removed, and only a directory on a file system with neither falls back
// to a test followed by the rename. Other codes as np_fio_rename.
QZBASE_EXPORT int np_fio_rename_noreplace(const char* oldPath, const char* newPath);
// Reads up to `length` bytes into `buffer`; *got is the count read (0 at the
// end of the file). 0 or a code.
QZBASE_EXPORT int np_fio_read(NpFile* handle, void* buffer, std::size_t length, std::size_t* got);
// Writes all `length` bytes (retrying short writes). 0 or a code
// (NP_ERR_NO_SPACE for a full disk or an exceeded quota).
QZBASE_EXPORT int np_fio_write(NpFile* handle, const void* data, std::size_t length);
// Takes an exclusive advisory lock on the open file without waiting. The lock
// belongs to this handle (not to the process: closing another handle of the
// file does not drop it) and ends when the handle is closed or its process
// dies; file servers that honour POSIX locks honour it. 0 when taken;
// NP_ERR_BUSY when another handle holds it; NP_ERR_UNKNOWN where the file
// system has no such locks.
QZBASE_EXPORT int np_fio_trylock(NpFile* handle);
// Opens a file by the NP_FIO_* flags. With NP_FIO_PROBE the handle pointer may
// be null and no handle is kept; a probe never creates or truncates anything,
// and a write probe of a directory tells whether entries can be created in it.
// 0 on success; 5 when NP_FIO_CREATE_NEW finds the file; 3, 4 and the other
// codes.
QZBASE_EXPORT int np_fio_open(const char* path, int flags, NpFile** handle);
// Closes a handle from np_fio_open; a null handle is ignored.
QZBASE_EXPORT int np_fio_close(NpFile* handle);
// Changes permissions by the NP_PERM_* selectors; 0 on success.
QZBASE_EXPORT int np_fio_chperm(const char* path, int who, int how, int what);
// A one-line, zero-terminated description of a result code ("No such file or
// directory" and the like). Never null; "Unknown error (N)" for an unknown code.
QZBASE_EXPORT const char* np_fio_errdesc(int code);
// Turns an arbitrary display name into a valid, safe file name in `out`
// (`outLength` bytes, at least 2). The result never contains "/", "\", NUL or a
// control character, is never "." or "..", never begins with "." (which would
// make it one of the vault's own files), is never empty, is valid UTF-8 where
// the input was, and is at most min(outLength - 1, NP_NAME_MAX) bytes long,
// cut at a character boundary. Characters that other file systems refuse
// (: * ? " < > |) and control characters (C0, DEL and C1) become "_"; leading
// dots and blanks become "_"; trailing blanks and dots are dropped. Returns 0, or
// NP_ERR_BUFFER when `out` is null or `outLength` below 2. A null name counts
// as empty; an empty name gives "_".
QZBASE_EXPORT int np_fio_fncode(const char* name, char* out, std::size_t outLength);
// Splits `path` at its last "/" into a directory part and a leaf name, each
// copied zero-terminated into its buffer when that is not null. The directory
// of a leaf without separator is ""; of "/x", "/". Returns 0, or NP_ERR_BUFFER
// when a buffer is too small (what fits is written).
QZBASE_EXPORT int np_fio_pparse(const char* path, char* dir, std::size_t dirLength,
                                char* name, std::size_t nameLength);

// ---------------------------------------------------------------------------
// Directories.

// Opens a directory by the NP_DIR_* flags. 0 on success; 2 not found, 3 not a
// directory, 4 access denied, 1 any other error.
QZBASE_EXPORT int np_dir_open(const char* path, int flags, NpDir** handle);
// Writes the next entry's full path (the directory joined with the entry's
// name) into `name`. "." and ".." are never returned. Entries that vanish
// while the directory is read are skipped. Returns 0 while entries remain and
// non-zero at the end (or on an error, or when `name` is too small).
QZBASE_EXPORT int np_dir_next(NpDir* handle, char* name, std::size_t nameLength);
// As np_dir_next, and fills *entry with the entry's status.
QZBASE_EXPORT int np_dir_next_stat(NpDir* handle, char* name, std::size_t nameLength,
                                   NpDirEntry* entry);
// Closes a handle from np_dir_open; a null handle is ignored.
QZBASE_EXPORT int np_dir_close(NpDir* handle);
// Creates a directory (mode NP_DIR_CREATE_ONE or NP_DIR_CREATE_PARENTS); 0 on
// success, 5 when it exists, 3 when the parent is missing, 4, and the others.
QZBASE_EXPORT int np_dir_create(const char* path, int mode);
// Removes an empty directory; 0 on success, 6 when not empty, 3, 4, ...
QZBASE_EXPORT int np_dir_unlink(const char* path);
// NP_PATH_MAX.
QZBASE_EXPORT int np_dir_pathlen(void);

// The file system that holds `path` (which must exist): its type name and
// kind. A file system that this layer does not know is NP_FS_LOCAL. 0, or
// NP_ERR_NOT_FOUND (3), or another code when it cannot be examined.
QZBASE_EXPORT int np_fs_info(const char* path, NpFsInfo* info);

// ---------------------------------------------------------------------------
// Shared objects.

// Forms the platform library name for `name` into `out`: succeeds (0) when
// `name` has the form of a loadable shared object ("x.so" or "x.so.N") and fits
// into `outLength`; non-zero otherwise.
QZBASE_EXPORT int np_dso_mklname(const char* name, char* out, std::size_t outLength);
// Loads a shared object (flags: 4 = resolve every symbol now, keep symbols
// local). A path with a "/" must lead to a regular file: a FIFO, a device or
// a directory is refused (1, "not a regular file") without being read. A
// bare name is searched for in the system's library directories. 0 on
// success; 1 when it cannot be loaded (the handle is null);
// NP_DSO_LOADED_UNUSABLE (3) with a valid handle that must be unloaded.
QZBASE_EXPORT int np_dso_load(const char* path, int flags, NpDso** handle);
// The reason of the last failed np_dso_load on this thread ("" if none).
QZBASE_EXPORT const char* np_dso_error(void);
QZBASE_EXPORT void* np_dso_getsym(NpDso* handle, const char* name);
QZBASE_EXPORT int np_dso_unload(NpDso* handle);

// ---------------------------------------------------------------------------
// Process, user and clock.

// Writes the login name of the process's effective user (its user id in
// decimal when it has no name); 0 on success.
QZBASE_EXPORT int np_osinf_user(char* buffer, std::size_t length);
// Writes the name of this machine; 0 on success.
QZBASE_EXPORT int np_osinf_host(char* buffer, std::size_t length);
// This process's id.
QZBASE_EXPORT int64_t np_proc_id(void);
// Whether process `processId` of this machine is running: 0 when it is (with
// *startToken, when given, set to a number that stays the same for the life
// of that process and differs for a later process given the same id, or 0
// where the platform cannot tell); NP_ERR_NOT_FOUND when no such process
// runs; another code when it cannot be told.
QZBASE_EXPORT int np_proc_probe(int64_t processId, uint64_t* startToken);
// Sleeps whole seconds.
QZBASE_EXPORT int np_proc_sleep(int seconds);
// Seconds since the epoch.
QZBASE_EXPORT int64_t np_time_now(void);
// True when the first byte of `text` is a decimal digit (false for null).
QZBASE_EXPORT bool np_uchar_isdigit(const char* text);

#endif  // QZBASE_PLATFORM_H_
