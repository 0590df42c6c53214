// crc_x86.h: the engines of x86-64 processors.

#ifndef SRC_CHECK_SUM_CRC_X86_H
#define SRC_CHECK_SUM_CRC_X86_H

#ifdef __x86_64__

#include "check_sum/crc_engine.h"

namespace tevalon::base::utils::crc {

/// Carry-less multiplication of 128-bit vectors.
extern const Engine kPclmulEngine;
/// The same of 256-bit vectors.
extern const Engine kAvx2Engine;
/// The same of 512-bit vectors.
extern const Engine kAvx512Engine;

}  // namespace tevalon::base::utils::crc

#endif  // __x86_64__

#endif  // SRC_CHECK_SUM_CRC_X86_H
