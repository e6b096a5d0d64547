// The library's entry points, with C linkage.
//
// Calling order: qzVaultStartup once; optionally setVaultPluginPath;
// createVaultInstance for each vault; release every object and vault;
// qzVaultShutdown once. The entry points keep process-wide state without
// locking: call them from one thread or serialise them. One start-up and one
// shut-down per process: after qzVaultShutdown the plug-ins are gone for good,
// and createVaultInstance fails with "The vault library has been shut down".
#ifndef QZVAULT_ENTRY_H_
#define QZVAULT_ENTRY_H_

#include "qzbase/date.h"
#include "qzvault/export.h"

class QzvVault;

extern "C" {

// Logs "Startup of Vault"; returns 0.
QZVAULT_EXPORT int qzVaultStartup(void);
// Logs "Shutdown of Vault" and releases the metadata plug-ins. Release every
// vault first. A second call does nothing more.
QZVAULT_EXPORT void qzVaultShutdown(void);
// A vault over the directory `rootPath`, owned by the caller (release()), or
// null: getVaultCreateError() then tells why (it stays empty when the
// directory is missing or is not a directory, and for a null `rootPath`). The
// plug-in directory is the configuration key "BASE/PLUGIN_PATH" or the one
// given to setVaultPluginPath; plug-ins that fail to load are reported in the
// diagnostic log and do not stop the creation.
QZVAULT_EXPORT QzvVault* createVaultInstance(const char* rootPath);
// "Vault Library version 5.6 (build 48)".
QZVAULT_EXPORT const char* getVaultVersion(void);
// The reason of the last failed createVaultInstance; "" after a success.
QZVAULT_EXPORT const char* getVaultCreateError(void);
// Sets the plug-in directory (at most 512 bytes are kept); null counts as "".
QZVAULT_EXPORT void setVaultPluginPath(const char* path);

// "5.6", "Vault Library version 5.6 (build 48)" and 48.
QZVAULT_EXPORT extern const char qzx_build_version[];
QZVAULT_EXPORT extern const char qzx_build_info[];
QZVAULT_EXPORT extern const int qzx_build_number;

// The local date of `seconds` since the epoch (fraction 0).
QZVAULT_EXPORT QzbDate qzvSeconds2QzbDate(unsigned long seconds);

}  // extern "C"

#endif  // QZVAULT_ENTRY_H_
