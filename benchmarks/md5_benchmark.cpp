#include <algorithm>
#include <array>
#include <string>
#include <vector>

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

namespace bench {
namespace {

using Digest = std::array<unsigned char, 16>;

// The bytes to their digest, everything included.
template <typename Hash>
void addMd5Rows(const char* peer, Hash hash) {
    addSampleRows("md5", peer, [hash](const std::vector<unsigned char>& bytes) {
        Digest digest = hash(bytes);
        benchmark::DoNotOptimize(digest.data());
        benchmark::ClobberMemory();
    });
}

Digest md5OfOurs(const std::vector<unsigned char>& bytes) {
    tevalon::base::utils::MD5 md5;
    md5.update(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const std::string text = md5.finalize().binDigest();
    Digest digest;
    std::copy(text.begin(), text.end(), digest.begin());
    return digest;
}

#ifdef HAVE_OPENSSL
Digest md5OfOpenSsl(const std::vector<unsigned char>& bytes) {
    Digest digest;
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, bytes.data(), bytes.size());
    MD5_Final(digest.data(), &context);
    return digest;
}
#endif

#ifdef HAVE_NETTLE
Digest md5OfNettle(const std::vector<unsigned char>& bytes) {
    Digest digest;
    md5_ctx context;
    md5_init(&context);
    md5_update(&context, bytes.size(), bytes.data());
    md5_digest(&context, digest.size(), digest.data());
    return digest;
}
#endif

#ifdef HAVE_GCRYPT
Digest md5OfGcrypt(const std::vector<unsigned char>& bytes) {
    Digest digest;
    gcry_md_hash_buffer(GCRY_MD_MD5, digest.data(), bytes.data(), bytes.size());
    return digest;
}
#endif

const bool s_areRowsAdded = [] {
    addMd5Rows(kOurs, md5OfOurs);
#ifdef HAVE_OPENSSL
    addMd5Rows("OpenSSL", md5OfOpenSsl);
#endif
#ifdef HAVE_NETTLE
    addMd5Rows("Nettle", md5OfNettle);
#endif
#ifdef HAVE_GCRYPT
    addMd5Rows("libgcrypt", md5OfGcrypt);
#endif
    return true;
}();

}  // namespace
}  // namespace bench
