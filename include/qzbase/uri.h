// URI and resource helpers of the base layer: generic URIs, file references
// for files ("file://..."), file-system path helpers, data-source references
// (QzDataURI) and the resource manager that forms and reads the identity texts
// of databases, tables and file references in the impact-analysis store. The
// text formats are described for plug-in writers in docs/identities.md.
//
// Thread safety: the free functions are thread-safe and touch no file system.
// A QzURI or QzDataURI is immutable and may be read from several threads; a
// QzResourceManager keeps its last error and is used by one thread at a time.
// Every object handed out is owned by the caller and ended with release().
#ifndef QZBASE_URI_H_
#define QZBASE_URI_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

// ---------------------------------------------------------------------------
// Generic URIs: "scheme://authority/path?query#fragment".

// A parsed URI. Components are returned as written (percent escapes kept).
class QZBASE_EXPORT QzURI {
 public:
  // Destroys the URI.
  virtual void release() = 0;
  // The scheme as written ("file", "HTTP", ...); never empty.
  virtual QzbString getScheme() const = 0;
  // The text between "//" and the path; may be empty ("file:///x").
  virtual QzbString getAuthority() const = 0;
  // From the first "/" after the authority up to "?" or "#"; may be empty.
  virtual QzbString getPath() const = 0;
  // The text after "?" up to "#"; null when there is no "?".
  virtual QzbString getQuery() const = 0;
  // The text after "#"; null when there is no "#".
  virtual QzbString getFragment() const = 0;
  // The whole text that was parsed.
  virtual QzbString toString() const = 0;

 protected:
  virtual ~QzURI() = default;
};

// Parses `text` as "scheme://..." where the scheme is a letter followed by
// letters, digits, "+", "-" or "." and is followed by "://". Returns a new
// QzURI owned by the caller (end it with release()), or null when the text is
// null, empty or not such a URI: "C:\x", "/x", "db:pg/sales" (no "://"), or a
// text holding a blank, a control character or one of " < > \ ^ ` { | }.
// A "%" is accepted anywhere, so texts holding "%%NAME%%" macros parse.
QZBASE_EXPORT QzURI* getURIFromURIString(const QzbString& text);

// ---------------------------------------------------------------------------
// File references and file-system paths.

// "file://" followed by `path`, in which every byte that a URI path may not
// hold is written as "%XX" (upper-case hex): blanks, "%", "?", "#", "\",
// control characters, non-ASCII bytes and the like; letters, digits,
// "-._~!$&'()*+,;=:@" and "/" are kept. An absolute path gives "file:///...".
// A null or empty path gives a null string.
QZBASE_EXPORT QzbString generateURIReferenceFromFilename(const QzbString& path);

// The path that generateURIReferenceFromFilename turned into `reference`: the
// text after "file://" (the scheme in any letter case) with every "%XX"
// decoded. Null when the reference is null, does not begin with "file://",
// holds nothing after it, or decodes to a NUL byte.
QZBASE_EXPORT QzbString getFilenameFromURIReference(const QzbString& reference);

// Splits `path` at its last "/" or "\" into the directory (without trailing
// separators; the first separator alone when the leaf lies directly in the
// root, as in "/x" or "//x"; empty when the path has no separator), the leaf
// name with its extension, and the
// leaf's extension without its dot: a two-part extension of
// qzbase/file_types.h when the leaf ends in one (in the leaf's own letter
// case), else the text after the leaf's last ".", else empty. Any of the
// output pointers may be null. Returns false, leaving the outputs unchanged,
// for a null or empty path and for a path that ends in a separator.
QZBASE_EXPORT bool getComponentsFromFilesystemPath(const QzbString& path, QzbString* extension,
                                                   QzbString* directory, QzbString* name);

// Normalises separators: every "\" becomes "/" and every run of separators
// becomes one "/" (a leading "//" or "\\" too). A trailing separator is kept.
// Returns true and writes the result to *fixed; false, leaving *fixed
// unchanged, when the path is null or empty or `fixed` is null.
QZBASE_EXPORT bool fixFilesystemStringSlashes(const QzbString& path, QzbString* fixed);

// ---------------------------------------------------------------------------
// Data-source references.

// The indexes of QzDataURI::getPart.
enum QzDataURIPart {
  QZ_DATAURI_SOURCE_TYPE = 0,  // the kind of data source: "postgresql", "sqlite", ...
  QZ_DATAURI_SOURCE_NAME = 1,  // the data source's name (a DSN, a database file, ...)
  QZ_DATAURI_CATALOG = 2,
  QZ_DATAURI_SCHEMA = 3,
};
#define QZ_DATAURI_PART_COUNT 4

// A reference to a database (empty table part) or to a table in it. Parts may
// hold "%%NAME%%" configuration macros, which are kept as written.
class QZBASE_EXPORT QzDataURI {
 public:
  // Destroys the reference.
  virtual void release() = 0;
  // Part `index` (QzDataURIPart); never null for 0 to 3, possibly empty. A
  // null string for any other index.
  virtual QzbString getPart(int index) const = 0;
  // The table name; empty for a database reference, never null.
  virtual QzbString getTablePart() const = 0;
  // The text form "datasource://type/source/catalog/schema/table", shortened
  // to "datasource://type/source" when catalog, schema and table are all
  // empty. A "/" inside a part is written "%2F", a "%" that is not one of a
  // "%%" pair is written "%25", and "%%" is kept, so macros stay readable.
  virtual QzbString toString() const = 0;

 protected:
  virtual ~QzDataURI() = default;
};

// A data-source reference made from its parts; a null part counts as empty.
// Returns a new object owned by the caller, or null when a part holds a
// control character (bytes 0 to 31 and 127), which no text form carries.
QZBASE_EXPORT QzDataURI* createQzDataURI(const QzbString& sourceType,
                                         const QzbString& sourceName,
                                         const QzbString& catalog, const QzbString& schema,
                                         const QzbString& table);

// Parses the text form of QzDataURI::toString: "datasource://" (the scheme in
// any letter case) followed by two or five parts separated by "/". In each
// part "%2F" (or "%2f") is "/", "%25" is "%", a "%%" pair is kept as it is and
// any other "%" is taken literally. Returns a new object owned by the caller,
// or null for a null text, another prefix, another number of parts, or a
// control character.
QZBASE_EXPORT QzDataURI* parseQzDataURI(const QzbString& text);

// ---------------------------------------------------------------------------
// The resource manager: identity texts of databases, tables and file
// references (docs/identities.md).
//
//   database        "db:<type>/<source>"
//   table           "db:<type>/<source>/<catalog>/<schema>/<table>"
//   file reference  "fileref:<directory>/<name>"
//
// In database and table identities a part escapes "/" and "%" exactly as the
// QzDataURI text form does; "%%NAME%%" macros are carried unchanged. The type,
// source and table may not be empty; catalog and schema may. A file reference
// splits at its last "/": the directory may be anything (also empty), the
// name may not be empty nor hold "/". No identity holds a control character.
// Every make operation followed by its parse operation gives the parts back.
class QZBASE_EXPORT QzResourceManager {
 public:
  // Destroys the manager.
  virtual void release() = 0;
  // One line describing the last failed operation; empty before any failure.
  virtual QzbString getErrorMessage() const = 0;

  // Forms a database identity into *identity. False (with a message, *identity
  // unchanged) when `identity` is null, the type or source is null or empty, or
  // a part holds a control character.
  virtual bool makeDatabaseIdentity(const QzbString& sourceType, const QzbString& sourceName,
                                    QzbString* identity) = 0;
  // Reads a database identity; the output pointers may be null. False (with a
  // message, outputs unchanged) when the text is not a database identity.
  virtual bool parseDatabaseIdentity(const QzbString& identity, QzbString* sourceType,
                                     QzbString* sourceName) = 0;

  // Forms a table identity (its fifth part is the table name). False as for
  // makeDatabaseIdentity, and when the table name is null or empty; a null
  // catalog or schema counts as empty.
  virtual bool makeTableIdentity(const QzbString& sourceType, const QzbString& sourceName,
                                 const QzbString& catalog, const QzbString& schema,
                                 const QzbString& table, QzbString* identity) = 0;
  // Reads a table identity; the output pointers may be null. False (with a
  // message, outputs unchanged) when the text is not a table identity.
  virtual bool parseTableIdentity(const QzbString& identity, QzbString* sourceType,
                                  QzbString* sourceName, QzbString* catalog,
                                  QzbString* schema, QzbString* table) = 0;

  // Forms a file reference (its second part is the file name). False (with a
  // message, *reference unchanged) when `reference` is null, the name is null,
  // empty or holds "/", or a part holds a control character; a null directory
  // counts as empty.
  virtual bool makeFileReference(const QzbString& directory, const QzbString& name,
                                 QzbString* reference) = 0;
  // Reads a file reference; the output pointers may be null. False (with a
  // message, outputs unchanged) when the text is not a file reference.
  virtual bool parseFileReference(const QzbString& reference, QzbString* directory,
                                  QzbString* name) = 0;

 protected:
  virtual ~QzResourceManager() = default;
};

// A new resource manager owned by the caller (end it with release()); null
// only when memory runs out.
QZBASE_EXPORT QzResourceManager* createQzResourceManager(void);

#endif  // QZBASE_URI_H_
