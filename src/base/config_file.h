// Reading and locating the operator's configuration file for the
// configuration store (qzbase/config.h). Internal to the base layer.
#ifndef QZBASE_SRC_CONFIG_FILE_H_
#define QZBASE_SRC_CONFIG_FILE_H_

#include <string>

// Reads the whole of the file at `path` into *content, once it is known to be
// a regular file of at most QZB_CONFIG_FILE_MAX_BYTES. Anything else (missing,
// unreadable, a directory, FIFO, device or socket, too large) is refused
// before a byte is read, with a one-line reason naming the file in *error.
bool qzbiReadConfigFile(const std::string& path, std::string* content, std::string* error);

#endif  // QZBASE_SRC_CONFIG_FILE_H_
