// sample_bytes.h: bytes to hash, of the sizes that all digests and checksums are measured at.

#ifndef BENCHMARKS_SAMPLE_BYTES_H
#define BENCHMARKS_SAMPLE_BYTES_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/rows.h"

namespace bench {

/// What is hashed: 64 bytes, 4 KiB and 1 MiB.
struct SampleSize {
    const char* name;
    std::size_t bytes;
};
inline constexpr SampleSize kSampleSizes[] = {{"64_B", 64}, {"4_KiB", 4096}, {"1_MiB", 1U << 20}};

/// So many bytes, none of them special.
inline std::vector<unsigned char> sampleBytes(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    unsigned int next = 1;
    for (unsigned char& byte : bytes) {
        next = next * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(next >> 24);
    }
    return bytes;
}

/// Adds the rows "task/size/peer", for each size one; an iteration is one call of @p process with
/// the bytes.
template <typename Process>
void addSampleRows(const std::string& task, const char* peer, Process process) {
    for (const SampleSize& size : kSampleSizes) {
        const auto run = [=](benchmark::State& state) {
            const std::vector<unsigned char> bytes = sampleBytes(size.bytes);
            for (auto _ : state) process(bytes);
            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                                    static_cast<std::int64_t>(size.bytes));
        };
        addRow(task + '/' + size.name, peer, run);
    }
}

}  // namespace bench

#endif  // BENCHMARKS_SAMPLE_BYTES_H
