// The stock-folder table.
#include "stock_folders.h"

namespace {

struct StockFolderRow {
  const char* relativePath;  // components separated by a backslash, as stored
  const char* filter;        // extensions without dot, ";"-separated; "" admits all
};

// The stock folders of a vault, by id (docs/file-types.md).
const StockFolderRow kStockFolders[QZVI_STOCK_FOLDER_COUNT] = {
    {"Jobs\\Definitions", "job.def"},
    {"Jobs\\Templates", "job.tpl"},
    {"Reports\\Definitions", "rpt.def"},
    {"Reports\\Templates", "rpt.tpl"},
    {"Reports\\Output", "pdf;html;csv"},
    {"Schedules", "sch.def;sch.tpl"},
    {"ReferenceData\\Tables", "ref.def;csv"},
    {"ReferenceData\\Templates", "ref.tpl"},
    {"Mappings", "map.def;map.tpl"},
    {"Queries", "qry.def;qry.tpl;sql"},
    {"Scripts", "sh;py;sql"},
    {"Logs", "log"},
    {"Data", "csv;txt;dat"},
    {"Shared", ""},
    {"Archive\\Jobs", "job.def;job.tpl"},
    {"Archive\\Reports", "rpt.def;rpt.tpl"},
};

}  // namespace

bool qzviIsStockFolderId(int id) {
  // Compared unsigned, so that negative ids are out of range too.
  return static_cast<unsigned>(id) < QZVI_STOCK_FOLDER_COUNT;
}

QzbString qzviStockFilterString(int id) {
  if (!qzviIsStockFolderId(id)) return QzbString();
  return QzbString(kStockFolders[id].filter, true);
}

QzbString qzviStockFolderRelativePath(int id) {
  if (!qzviIsStockFolderId(id)) return QzbString();
  return QzbString(kStockFolders[id].relativePath, true);
}
