// Symbol visibility of libqzvault: only the entry points, the build symbols and
// qzvSeconds2QzbDate are exported (a linker version script enforces it).
#ifndef QZVAULT_EXPORT_H_
#define QZVAULT_EXPORT_H_

#define QZVAULT_EXPORT __attribute__((visibility("default")))

#endif  // QZVAULT_EXPORT_H_
