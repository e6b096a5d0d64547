// The whole tool as one call: parses the command line, runs the chosen
// command and prints a failure as one line on stderr. main() is this call;
// tests run commands in their own process through it (one call per process:
// the library is started and shut down once per run).
#ifndef QZVAULT_TOOL_COMMANDS_RUN_H_
#define QZVAULT_TOOL_COMMANDS_RUN_H_

namespace qzvtool {

// `argv[0]` is the program name. Returns the exit status: 0 success, 1
// failure, 2 usage error.
int runCommandLine(int argc, char** argv);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_COMMANDS_RUN_H_
