// Symbol visibility for the base layer. libqzbase is built with hidden
// visibility; everything a host or plug-in may call carries QZBASE_EXPORT.
#ifndef QZBASE_EXPORT_H_
#define QZBASE_EXPORT_H_

#define QZBASE_EXPORT __attribute__((visibility("default")))

// The source file name carried by log events: the leaf name only, so that
// events do not depend on where the library was built.
#if defined(__FILE_NAME__)
#define QZ_SOURCE_FILE __FILE_NAME__
#else
#define QZ_SOURCE_FILE __FILE__
#endif

#endif  // QZBASE_EXPORT_H_
