// The options every command shares, as the command line gave them.
#ifndef QZVAULT_TOOL_SUPPORT_GLOBAL_OPTIONS_H_
#define QZVAULT_TOOL_SUPPORT_GLOBAL_OPTIONS_H_

#include <string>
#include <vector>

namespace qzvtool {

struct GlobalOptions {
  std::vector<std::string> directories;  // -C DIR, in order: where the command runs
  std::string vault;                  // --vault; empty: QZVAULT_DIR, else found from
                                      // the current directory (vault_location.h)
  std::string plugins;                // --plugins; empty: see plugin_dir.h
  int logLevel = 0;                   // --log-level; 0: no log output
  std::vector<std::string> settings;  // --set KEY=VALUE, in order
};

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_GLOBAL_OPTIONS_H_
