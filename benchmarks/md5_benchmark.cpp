#include <array>

#include "base/utils.h"
#include "sample_bytes.h"

#ifdef HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED  // The low-level functions are the fast ones.
#include <openssl/md5.h>
#endif
#ifdef HAVE_NETTLE
#include <nettle/md5.h>
#endif
#ifdef HAVE_GCRYPT
#include <gcrypt.h>
#endif

namespace {

using Digest = std::array<unsigned char, 16>;

// The bytes to their digest, everything included.
template <typename Hash>
void hashSamples(benchmark::State& state, Hash hash) {
    const std::vector<unsigned char> bytes = sampleBytes(state);
    for (auto _ : state) {
        Digest digest = hash(bytes);
        benchmark::DoNotOptimize(digest.data());
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

void Md5Ours(benchmark::State& state) {
    hashSamples(state, [](const std::vector<unsigned char>& bytes) {
        tevalon::base::utils::MD5 md5;
        md5.update(bytes.data(), static_cast<unsigned int>(bytes.size()));
        const std::string text = md5.finalize().binDigest();
        Digest digest;
        std::copy(text.begin(), text.end(), digest.begin());
        return digest;
    });
}
BENCHMARK(Md5Ours)->Apply(sampleSizes);

#ifdef HAVE_OPENSSL
void Md5OpenSsl(benchmark::State& state) {
    hashSamples(state, [](const std::vector<unsigned char>& bytes) {
        Digest digest;
        MD5_CTX context;
        MD5_Init(&context);
        MD5_Update(&context, bytes.data(), bytes.size());
        MD5_Final(digest.data(), &context);
        return digest;
    });
}
BENCHMARK(Md5OpenSsl)->Apply(sampleSizes);
#endif

#ifdef HAVE_NETTLE
void Md5Nettle(benchmark::State& state) {
    hashSamples(state, [](const std::vector<unsigned char>& bytes) {
        Digest digest;
        md5_ctx context;
        md5_init(&context);
        md5_update(&context, bytes.size(), bytes.data());
        md5_digest(&context, digest.size(), digest.data());
        return digest;
    });
}
BENCHMARK(Md5Nettle)->Apply(sampleSizes);
#endif

#ifdef HAVE_GCRYPT
void Md5Gcrypt(benchmark::State& state) {
    hashSamples(state, [](const std::vector<unsigned char>& bytes) {
        Digest digest;
        gcry_md_hash_buffer(GCRY_MD_MD5, digest.data(), bytes.data(), bytes.size());
        return digest;
    });
}
BENCHMARK(Md5Gcrypt)->Apply(sampleSizes);
#endif

}  // namespace
