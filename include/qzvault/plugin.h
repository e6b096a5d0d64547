// The metadata plug-in interface: the header a plug-in writer includes.
//
// A metadata plug-in is a shared object in the vault's plug-in directory whose
// file name begins with "qzvmd" (in any letter case) and ends in ".so". It
// exports, with C linkage, the entry function
//
//     extern "C" QzvMetaDataPluginFactory* qzv_create_factory10(void);
//
// which returns a factory, or null. The library asks the factory for its
// status (1 means usable), takes its plug-ins, and releases the factory. Each
// plug-in recognises files of one type, opens them as metadata files, and
// through them gives the library the file's display name, its attributes and
// the resources (files, databases, tables, other objects) the file uses.
//
// Rules for plug-in writers:
// - Plug-ins link only libqzbase and this header; they never throw across this
//   interface (catch everything inside).
// - Every object handed to the library is ended by the library through its
//   release(); the plug-in frees its own memory there. Strings cross the
//   interface as QzbString values, whose memory libqzbase manages.
// - A plug-in lives from loading until qzVaultShutdown, which calls its
//   release(). The library never unloads the shared object.
// - The library may call a plug-in from several threads at once (for files of
//   different folders); one metadata file is used from one thread at a time.
//
// - Identities of files are full paths with "." and ".." folded away, so that
//   one file is one resource however a definition names it: qzbNormalizePath
//   (qzbase/path.h) does that.
// See docs/plugin-guide.md for a walk-through built around the shipped plug-in.
#ifndef QZVAULT_PLUGIN_H_
#define QZVAULT_PLUGIN_H_

#include "qzbase/string.h"
#include "qzvault/resource.h"

// One opened file.
class QzvMetaDataFile {
 public:
  // The full path the file was opened with.
  virtual QzbString getPath() = 0;
  // Closes the file (discarding what was not committed or saved) and frees the
  // object.
  virtual void release() = 0;
  // The display name stored in the file. Returns true and sets *name when the
  // file has one; false otherwise. *flags (may be null) receives 0; other
  // values are reserved.
  virtual bool getDisplayName(QzbString* name, int* flags) = 0;
  // The number of attributes the file carries.
  virtual int getAttributeCount() = 0;
  // True when the file has changes that are neither committed nor saved.
  virtual bool isModified() = 0;
  // Describes attribute `index` (0 .. count-1): its number of rows, its number
  // of value columns (the library keeps at most ten), its name, and whether it
  // is read-only (non-zero). Any out pointer may be null. An index out of range
  // sets *rows and *columns to 0 and *name to null.
  virtual void getAttributeDescription(int index, int* rows, int* columns, QzbString* name,
                                       int* readOnly) = 0;
  // The value at (attribute, row, column); a null string when there is none.
  virtual QzbString getValue(int index, int row, int column) = 0;
  // Changes a value in memory, adding rows as needed; false when the attribute
  // is read-only or the position is invalid.
  virtual bool setValue(int index, int row, int column, const QzbString& value) = 0;
  // Removes every row of the attribute in memory (leaving one empty row).
  virtual void clear(int index) = 0;
  // Writes the attribute changes made through setValue and clear into the file.
  virtual bool commit() = 0;
  // Offers a new display name; true when the file accepts it (the change is in
  // memory until save()).
  virtual bool offerName(const QzbString& name) = 0;
  // Writes the file back. A plug-in writes a temporary file beside the original
  // and renames it over the original, so that a crash never leaves half a file.
  virtual bool save() = 0;
  // Lists the resources the file uses into `dependencies`, one per row, making
  // each through `factory` (factory->getResource or getDataResource; the
  // plug-in releases what the factory returns after copying it into the list
  // with addRow and setLastRowElement). False when the file cannot be read.
  virtual bool listDependencies(QzResourceList* dependencies, QzResourceFactory* factory) = 0;

 protected:
  virtual ~QzvMetaDataFile() = default;
};

// One file type.
class QzvMetaDataPlugin {
 public:
  // A one-line, human-readable description of the plug-in ("Job and report
  // definitions 1.0").
  virtual QzbString getDescription() = 0;
  // Called once, at qzVaultShutdown; frees the plug-in.
  virtual void release() = 0;
  // The type of the files this plug-in handles, stored as the cached file type.
  virtual QzbString getTypeName() = 0;
  // True when the plug-in recognises the file at `path` (by name, and by content
  // where it must); cheap, since it is asked for every file of a listing.
  virtual bool canHandle(const QzbString& path) = 0;
  // Opens the file; a new QzvMetaDataFile owned by the caller, or null when the
  // file cannot be read.
  virtual QzvMetaDataFile* openFile(const QzbString& path) = 0;
  // The identity under which the file at `path` (already normalised to "/"
  // separators) is known in the impact-analysis store.
  virtual QzbString getResourceIdentity(const QzbString& path) = 0;
  // The resource type of the files this plug-in handles ("Job", "Report", ...).
  virtual QzbString getResourceType() = 0;

 protected:
  virtual ~QzvMetaDataPlugin() = default;
};

// What qzv_create_factory10 returns.
class QzvMetaDataPluginFactory {
 public:
  // 1 when the factory is usable; anything else makes the library skip it.
  virtual int getStatus() = 0;
  virtual int getPluginCount() = 0;
  // Plug-in `index` (0 .. count-1). The plug-ins stay alive after the factory
  // is released.
  virtual QzvMetaDataPlugin* getPlugin(int index) = 0;
  // Frees the factory.
  virtual void release() = 0;

 protected:
  virtual ~QzvMetaDataPluginFactory() = default;
};

// The entry function's name and type.
#define QZV_PLUGIN_ENTRY_NAME "qzv_create_factory10"
#define QZV_PLUGIN_FILE_PREFIX "qzvmd"
typedef QzvMetaDataPluginFactory* (*QzvCreateFactoryFunction)(void);

#endif  // QZVAULT_PLUGIN_H_
