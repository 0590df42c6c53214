// export.h: marks what the shared library shows; everything else in it is hidden.

#ifndef BASE_EXPORT_H
#define BASE_EXPORT_H

#define TEVALON_BASE_EXPORT __attribute__((visibility("default")))

#endif  // BASE_EXPORT_H
