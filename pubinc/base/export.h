// export.h: marks what the shared library shows; everything else in it is hidden.

#ifndef BASE_EXPORT_H
#define BASE_EXPORT_H

/// On a class or function: the library shows it.
#define TEVALON_BASE_EXPORT __attribute__((visibility("default")))

/// A part of an exported class that only the library itself calls.
#define TEVALON_BASE_LOCAL __attribute__((visibility("hidden")))

#endif  // BASE_EXPORT_H
