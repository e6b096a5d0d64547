// The stock folders of a vault: sixteen folders by id, each with its place
// below the root and the file types it admits (docs/file-types.md).
#ifndef QZVAULT_SRC_TREE_STOCK_FOLDERS_H_
#define QZVAULT_SRC_TREE_STOCK_FOLDERS_H_

#include "qzbase/string.h"

#define QZVI_STOCK_FOLDER_COUNT 16

// Whether `id` names a stock folder (0..15).
bool qzviIsStockFolderId(int id);
// The filter string of stock folder `id` (extensions without dot, separated
// by ";"; empty admits every file), or a null string outside 0..15.
QzbString qzviStockFilterString(int id);
// The relative path of stock folder `id` as stored (components separated by
// a backslash), or a null string outside 0..15.
QzbString qzviStockFolderRelativePath(int id);

#endif  // QZVAULT_SRC_TREE_STOCK_FOLDERS_H_
