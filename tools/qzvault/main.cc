// qzvault: the command-line tool of the vault library. Everything it does is
// in runCommandLine (commands/run.h): parsing (usage errors end with exit
// status 2), running the chosen command, and printing a failure as one line
// on stderr.
#include "run.h"

int main(int argc, char** argv) { return qzvtool::runCommandLine(argc, argv); }
