// The library's build identification, exported with C linkage.
#include "qzvault/entry.h"

extern "C" {
const char qzx_build_version[] = "5.6";
const char qzx_build_info[] = "Vault Library version 5.6 (build 48)";
const int qzx_build_number = 48;
}
