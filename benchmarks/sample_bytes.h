// sample_bytes.h: bytes to hash, of the sizes that all digests and checksums are measured at.

#ifndef BENCHMARKS_SAMPLE_BYTES_H
#define BENCHMARKS_SAMPLE_BYTES_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

/// As many bytes as the benchmark's argument says, none of them special.
inline std::vector<unsigned char> sampleBytes(const benchmark::State& state) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    unsigned int next = 1;
    for (unsigned char& byte : bytes) {
        next = next * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(next >> 24);
    }
    return bytes;
}

inline void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<long>(state.iterations()) * state.range(0));
}

/// 64 bytes, 4 KiB and 1 MiB.
inline void sampleSizes(benchmark::internal::Benchmark* p_benchmark) {
    p_benchmark->Arg(64)->Arg(4096)->Arg(1 << 20);
}

#endif  // BENCHMARKS_SAMPLE_BYTES_H
