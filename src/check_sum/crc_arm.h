// crc_arm.h: the engines of ARMv8 processors in 32-bit state.

#ifndef SRC_CHECK_SUM_CRC_ARM_H
#define SRC_CHECK_SUM_CRC_ARM_H

#include "check_sum/crc_table.h"

// Only GCC compiles single functions for another ARM processor than the rest of the build.
#if defined(__arm__) && !defined(__ARMEB__) && !defined(__SOFTFP__) && !defined(__clang__) && \
    TEVALON_BASE_CRC_SLICES > 1
#define TEVALON_BASE_CRC_ARM 1

#include "check_sum/crc_engine.h"

namespace tevalon::base::utils::crc {

/// Carry-less multiplication and the CRC-32 instructions.
extern const Engine kArmPmullEngine;
/// The CRC-32 instructions alone.
extern const Engine kArmCrc32Engine;

}  // namespace tevalon::base::utils::crc

#else
#define TEVALON_BASE_CRC_ARM 0
#endif

#endif  // SRC_CHECK_SUM_CRC_ARM_H
