// The standard vault that the catalogue's operations work on, and what a
// sweep needs to judge a vault afterwards: its user content and its objects.
//
//   .                     root, with a UUID and a lineage store
//   Data/                 folder attribute "Purpose"
//     orders.csv          "Orders": versions 1 and 2, attribute "Owner" with
//                         two rows, cached by a listing
//     customers.csv       "Customers", locked
//     notes.txt           a plain file the library never recorded
//   Jobs/load.job.def     a job definition (read by the shipped plug-in)
//                         that uses Data/orders.csv, analysed
//   Old_ stuff/           folder whose display name is "Old: stuff"
//     old.txt
//   Empty/                an empty folder
//   incoming.csv          a file in the root not yet adopted as an object
//
// Every object and version holds a text of its own, so that a content can be
// found wherever it ends up.
#ifndef QZ_TESTS_SUPPORT_OPERATIONS_VAULT_FIXTURE_H_
#define QZ_TESTS_SUPPORT_OPERATIONS_VAULT_FIXTURE_H_

#include <map>
#include <set>
#include <string>

namespace qztest {

// The plug-in directory of the build tree (the shipped plug-ins).
std::string buildPluginDirectory();

// The UUID the standard vault is given.
extern const char kFixtureUuid[];
// The text of Jobs/load.job.def.
extern const char kFixtureJobDefinition[];

// Builds the standard vault in the empty directory `root`, in a forked
// child (the library is started there, not in this process). False, with
// *error, when it could not be built.
bool buildStandardVault(const std::string& root, std::string* error);

// Copies the tree at `from` into the new directory `to`, keeping the
// modification times of files and directories and the permission bits.
bool copyTree(const std::string& from, const std::string& to, std::string* error);

// The user content of a vault: every regular file that is an object (no
// component of its vault path begins with "."), every version (a file in a
// ".v_ver") and every quarantined file (in a ".v_quarantine"), by vault path,
// with its bytes. Symbolic links are not followed.
std::map<std::string, std::string> userContent(const std::string& root);

// The vault paths of the objects of a vault (regular files outside the
// vault's own files and directories).
std::set<std::string> objectPaths(const std::string& root);

// Every metadata database of a vault (".v_fmd", ".v_cmd", ".v_imd"), by
// vault path.
std::set<std::string> databasePaths(const std::string& root);

// Opens the database read-write (which rolls back a hot journal, as the next
// opener would) and runs SQLite's integrity check. "ok", or what failed.
std::string databaseIntegrity(const std::string& path);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_OPERATIONS_VAULT_FIXTURE_H_
