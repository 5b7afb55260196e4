// Checks and ciphers beside their peers and the limits of the machine, over blocks of four sizes
// and over a file of 256 MiB in memory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gcrypt.h>
#include <isa-l.h>
#include <libdeflate.h>
#include <mcrypt.h>
#include <nettle/arcfour.h>
#include <nettle/sha1.h>
#include <unistd.h>
#include <zlib.h>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <openssl/rc4.h>
#include <openssl/sha.h>

#include <boost/crc.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "qelbase/checks/COXCRC.h"
#include "qelbase/checks/COXCheckSum.h"
#include "qelbase/checks/CRijndael.h"
#include "qelbase/checks/CSHA1.h"
#include "qelbase/checks/bitmixing.h"
#include "qelbase/checks/bitmixing_internal.h"
#include "qelbase/checks/processor_internal.h"
#include "qelbase/checks/rc4.h"

namespace {

using Byte = unsigned char;
using qel::checks::FeatureScope;
using qel::checks::Has;
using qel::checks::kAvx512;
using qel::checks::kVpclmul;

constexpr std::size_t kLargest = 16 << 20;
constexpr std::int64_t kSizes[] = {64, 1024, 65536, kLargest};
constexpr std::int64_t kChainedSizes[] = {1024, 65536};
const Byte kKey[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
Byte g_chain[32];  // not const: some peers write it

// 384 bytes at multiples of 24 and 32 too, so that every size is one of whole blocks.
std::size_t wholeBlocks(std::size_t size, std::size_t block) {
  return size / block * block;
}

Byte* input() {
  static Byte* const bytes = [] {
    auto* room = static_cast<Byte*>(std::aligned_alloc(64, kLargest + 64));
    for (std::size_t i = 0; i < kLargest + 64; ++i)
      room[i] = static_cast<Byte>(i * 0x9E3779B1u >> 24);
    return room;
  }();
  return bytes;
}

Byte* output() {
  static Byte* const bytes = [] {
    auto* room = static_cast<Byte*>(std::aligned_alloc(64, kLargest + 64));
    std::memset(room, 0, kLargest + 64);
    return room;
  }();
  return bytes;
}

// Times `work(size)`.
template <std::size_t N, typename Work>
void add(const std::string& name, const std::int64_t (&sizes)[N], Work work) {
  auto* entry = benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) mutable {
    const auto size = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
      work(size);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
  });
  for (std::int64_t size : sizes) entry->Arg(size);
  entry->UseRealTime();
}

// As `add`, without the instruction sets that the portable form does without.
template <std::size_t N, typename Work>
void addPortable(const std::string& name, const std::int64_t (&sizes)[N], Work work) {
  add(name, sizes, [work](std::size_t size) mutable {
    const FeatureScope none(0);
    work(size);
  });
}

// --- limits --------------------------------------------------------------------------------------

#if defined(__x86_64__)

__attribute__((target("avx2"))) void loadAll(std::size_t size) {
  const Byte* const data = input();
  __m256i sums[4] = {};
  for (std::size_t i = 0; i + 128 <= size; i += 128) {
    for (int k = 0; k < 4; ++k) {
      sums[k] = _mm256_xor_si256(
          sums[k], _mm256_load_si256(reinterpret_cast<const __m256i*>(data + i + 32 * k)));
    }
  }
  for (auto& sum : sums) benchmark::DoNotOptimize(sum);
}

// Four accumulators carried over the data by two multiplications each, and nothing else.
__attribute__((target("avx512f,vpclmulqdq"))) void foldAll(std::size_t size) {
  const Byte* const data = input();
  __m512i sums[4] = {};
  const __m512i pair = _mm512_set1_epi64(7);
  for (std::size_t i = 0; i + 256 <= size; i += 256) {
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
      const __m512i low = _mm512_clmulepi64_epi128(sums[k], pair, 0x00);
      const __m512i high = _mm512_clmulepi64_epi128(sums[k], pair, 0x11);
      sums[k] = _mm512_ternarylogic_epi64(low, high, _mm512_loadu_si512(data + i + 64 * k), 0x96);
    }
  }
  for (auto& sum : sums) benchmark::DoNotOptimize(sum);
}

// One block after the other through ten dependent rounds.
__attribute__((target("aes"))) void chainAes(std::size_t size) {
  __m128i x = _mm_setzero_si128();
  const __m128i key = _mm_set1_epi32(7);
  for (std::size_t i = 0; i < size; i += 16) {
    for (int round = 0; round < 10; ++round) x = _mm_aesenc_si128(x, key);
  }
  benchmark::DoNotOptimize(x);
}

// As many rounds as a message of `size` bytes needs, in chains that don't wait for one another.
__attribute__((target("sha,sse4.1"))) void shaRounds(std::size_t size) {
  __m128i x[4] = {};
  const __m128i e = _mm_set1_epi32(7);
  for (std::size_t i = 0; i < 5 * (size / 64 + 1); ++i) {
    for (auto& chain : x) chain = _mm_sha1rnds4_epu32(chain, e, 0);
  }
  for (auto& chain : x) benchmark::DoNotOptimize(chain);
}

__attribute__((target("sha,sse4.1"))) void chainSha(std::size_t size) {
  __m128i x = _mm_setzero_si128();
  const __m128i e = _mm_set1_epi32(7);
  for (std::size_t i = 0; i < size; i += 64) {
    for (int step = 0; step < 20; ++step) x = _mm_sha1rnds4_epu32(x, e, 0);
  }
  benchmark::DoNotOptimize(x);
}

#endif

// --- checks --------------------------------------------------------------------------------------

void addCrc() {
  static COXCRC32 crc32_default;
  static COXCRC32 crc32_other(0x82F63B78);
  static COXCRC16 crc16_default;
  add("crc32/ours", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(crc32_default.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  add("crc32/other_polynomial", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(crc32_other.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  // A running check: each block goes on from the one before, for the peers too.
  static std::uint32_t crc = 0;
  add("crc32/isal", kSizes, [](std::size_t n) { crc = crc32_gzip_refl(crc, input(), n); });
  add("crc32/libdeflate", kSizes, [](std::size_t n) { crc = libdeflate_crc32(crc, input(), n); });
  add("crc32/zlib", kSizes, [](std::size_t n) {
    crc = static_cast<std::uint32_t>(crc32(crc, input(), static_cast<uInt>(n)));
  });
  // Blocks that have nothing to do with one another.
  constexpr std::int64_t kSmallSizes[] = {64, 1024};
  add("crc32_apart/ours", kSmallSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(crc32_default.CalculateBlock(input(), static_cast<DWORD>(n), 0));
  });
  add("crc32_apart/isal", kSmallSizes,
      [](std::size_t n) { benchmark::DoNotOptimize(crc32_gzip_refl(0, input(), n)); });
  add("crc32_apart/libdeflate", kSmallSizes,
      [](std::size_t n) { benchmark::DoNotOptimize(libdeflate_crc32(0, input(), n)); });
  addPortable("crc32_portable/ours", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(crc32_default.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  add("crc32_portable/zlib", kSizes,
      [](std::size_t n) { benchmark::DoNotOptimize(crc32(0, input(), static_cast<uInt>(n))); });
  add("crc16/ours", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(crc16_default.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  static std::uint16_t crc16 = 0;
  add("crc16/isal_t10dif", kSizes, [](std::size_t n) { crc16 = crc16_t10dif(crc16, input(), n); });
  static boost::crc_optimal<16, 0x1021, 0xFFFF> boost_crc;
  add("crc16/boost", kSizes, [](std::size_t n) {
    boost_crc.process_bytes(input(), n);
    benchmark::DoNotOptimize(boost_crc.checksum());
  });
}

void addSums() {
  static COXCheckSum8 sum8;
  static COXCheckSum32 sum32;
  add("sum/ours", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(sum32.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  add("sum/ours_8_bits", kSizes, [](std::size_t n) {
    benchmark::DoNotOptimize(sum8.CalculateBlock(input(), static_cast<DWORD>(n)));
  });
  add("sum/accumulate", kSizes,
      [](std::size_t n) { benchmark::DoNotOptimize(std::accumulate(input(), input() + n, 0u)); });
#if defined(__x86_64__)
  add("sum/limit_load", kSizes, loadAll);
  add("crc32/limit_load", kSizes, loadAll);
  if (Has(kVpclmul | kAvx512)) {
    add("crc32/limit_fold", kSizes, foldAll);
    add("crc16/limit_fold", kSizes, foldAll);
  }
#endif
}

template <typename Digest>
void addSha1(const std::string& peer, Digest digest) {
  add("sha1/" + peer, kSizes, digest);
}

void addSha1s() {
  static Byte out[20];
  const auto ours = [](std::size_t n) {
    CSHA1 hash;
    hash.Update(input(), static_cast<std::uint32_t>(n));
    hash.Final();
    hash.GetHash(out);
  };
  addSha1("ours", ours);
  addPortable("sha1_portable/ours", kSizes, ours);
  addSha1("openssl", [](std::size_t n) { SHA1(input(), n, out); });
  addSha1("openssl_evp", [](std::size_t n) {
    static EVP_MD_CTX* const context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha1(), nullptr);
    EVP_DigestUpdate(context, input(), n);
    EVP_DigestFinal_ex(context, out, nullptr);
  });
  addSha1("libgcrypt", [](std::size_t n) { gcry_md_hash_buffer(GCRY_MD_SHA1, out, input(), n); });
  addSha1("nettle", [](std::size_t n) {
    sha1_ctx context;
    sha1_init(&context);
    sha1_update(&context, n, input());
    sha1_digest(&context, 20, out);
  });
#if defined(__x86_64__)
  addSha1("limit_chain", chainSha);
  addSha1("limit_rounds", shaRounds);
#endif
}

// --- files ---------------------------------------------------------------------------------------

class BigFile {
 public:
  static constexpr std::int64_t kSize = 256 << 20;
  BigFile() {
    std::FILE* file = std::fopen(m_name.c_str(), "wb");
    if (!file) throw std::runtime_error("cannot write " + m_name);
    for (std::int64_t at = 0; at < kSize; at += kLargest) std::fwrite(input(), 1, kLargest, file);
    std::fclose(file);
  }
  ~BigFile() { std::remove(m_name.c_str()); }

  const std::string& name() const { return m_name; }
  std::wstring wide() const {
    std::wstring text = L"C:" + std::wstring(m_name.begin(), m_name.end());
    for (auto& c : text) {
      if (c == L'/') c = L'\\';
    }
    return text;
  }
  // Hands every block of `block` bytes to `take`.
  template <typename Take>
  void read(std::size_t block, Take take) const {
    const int fd = open(m_name.c_str(), O_RDONLY);
    for (ssize_t got; (got = ::read(fd, output(), block)) > 0;) take(static_cast<std::size_t>(got));
    close(fd);
  }

 private:
  std::string m_name = "/dev/shm/qelbase_bench_" + std::to_string(getpid());
};

void addFiles() {
  static const BigFile file;
  constexpr std::int64_t kSize[] = {BigFile::kSize};
  add("crc32_file/ours", kSize,
      [](std::size_t) { benchmark::DoNotOptimize(COXCRC32().CalculateFile(file.wide())); });
  for (std::size_t block : {2048, 65536}) {
    const std::string suffix = "_by_" + std::to_string(block);
    add("crc32_file/isal" + suffix, kSize, [block](std::size_t) {
      std::uint32_t crc = 0;
      file.read(block, [&](std::size_t n) { crc = crc32_gzip_refl(crc, output(), n); });
      benchmark::DoNotOptimize(crc);
    });
    add("crc32_file/libdeflate" + suffix, kSize, [block](std::size_t) {
      std::uint32_t crc = 0;
      file.read(block, [&](std::size_t n) { crc = libdeflate_crc32(crc, output(), n); });
      benchmark::DoNotOptimize(crc);
    });
    add("crc32_file/limit_read" + suffix, kSize,
        [block](std::size_t) { file.read(block, [](std::size_t) {}); });
  }
  add("sha1_file/ours", kSize, [](std::size_t) {
    CSHA1 hash;
    std::string name = file.name();
    benchmark::DoNotOptimize(hash.HashFile(name.data()));
    hash.Final();
  });
  add("sha1_file/openssl_by_8192", kSize, [](std::size_t) {
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha1(), nullptr);
    file.read(8192, [&](std::size_t n) { EVP_DigestUpdate(context, output(), n); });
    Byte digest[20];
    EVP_DigestFinal_ex(context, digest, nullptr);
    EVP_MD_CTX_free(context);
  });
  add("sha1_file/limit_read", kSize, [](std::size_t) { file.read(65536, [](std::size_t) {}); });
}

// --- ciphers -------------------------------------------------------------------------------------

struct ModeRow {
  const char* name;
  std::int32_t mode;
  int gcrypt;
  const EVP_CIPHER* (*openssl)();
  const char* mcrypt;
};

const ModeRow kModes[] = {
    {"ecb", CRijndael::ECB, GCRY_CIPHER_MODE_ECB, EVP_aes_128_ecb, "ecb"},
    {"cbc", CRijndael::CBC, GCRY_CIPHER_MODE_CBC, EVP_aes_128_cbc, "cbc"},
    {"cfb", CRijndael::CFB, GCRY_CIPHER_MODE_CFB, EVP_aes_128_cfb128, "ncfb"},
};

std::shared_ptr<CRijndael> made(int block) {
  auto cipher = std::make_shared<CRijndael>();
  cipher->MakeKey(kKey, g_chain, 16, block);
  return cipher;
}

void addAes(const ModeRow& row, bool encrypts) {
  const std::string name = std::string("aes_") + row.name + (encrypts ? "_encrypt/" : "_decrypt/");
  const auto work = [cipher = made(16), encrypts, mode = row.mode](std::size_t n) {
    if (encrypts) return cipher->Encrypt(input(), output(), n, mode);
    cipher->Decrypt(input(), output(), n, mode);
  };
  add(name + "ours", kSizes, work);
  gcry_cipher_hd_t gcrypt;
  gcry_cipher_open(&gcrypt, GCRY_CIPHER_AES128, row.gcrypt, 0);
  gcry_cipher_setkey(gcrypt, kKey, 16);
  gcry_cipher_setiv(gcrypt, g_chain, 16);
  add(name + "libgcrypt", kSizes, [gcrypt, encrypts](std::size_t n) {
    if (encrypts) {
      gcry_cipher_encrypt(gcrypt, output(), n, input(), n);
    } else {
      gcry_cipher_decrypt(gcrypt, output(), n, input(), n);
    }
  });
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  EVP_CipherInit_ex(context, row.openssl(), nullptr, kKey, g_chain, encrypts);
  EVP_CIPHER_CTX_set_padding(context, 0);
  add(name + "openssl", kSizes, [context](std::size_t n) {
    int done = 0;
    EVP_CipherUpdate(context, output(), &done, input(), static_cast<int>(n));
  });
#if defined(__x86_64__)
  if (encrypts && row.mode != CRijndael::ECB) add(name + "limit_chain", kSizes, chainAes);
#endif
}

void addAesTables() {
  addPortable("aes_tables/ours", kSizes, [cipher = made(16)](std::size_t n) {
    cipher->Encrypt(input(), output(), n, CRijndael::ECB);
  });
  static AES_KEY key;
  AES_set_encrypt_key(kKey, 128, &key);
  add("aes_tables/openssl", kSizes, [](std::size_t n) {
    for (std::size_t i = 0; i < n; i += 16) AES_encrypt(input() + i, output() + i, &key);
  });
}

void addLarge(const ModeRow& row, std::size_t block, bool encrypts) {
  const std::string name = "rijndael_" + std::to_string(8 * block) + "_" + row.name +
                           (encrypts ? "_encrypt/" : "_decrypt/");
  const auto work = [cipher = made(static_cast<int>(block)), block, encrypts,
                     mode = row.mode](std::size_t n) {
    n = wholeBlocks(n, block);
    if (encrypts) return cipher->Encrypt(input(), output(), n, mode);
    cipher->Decrypt(input(), output(), n, mode);
  };
  add(name + "ours", kChainedSizes, work);
  std::string algorithm = "rijndael-" + std::to_string(8 * block);
  std::string mode = row.mcrypt;
  const MCRYPT module = mcrypt_module_open(algorithm.data(), nullptr, mode.data(), nullptr);
  Byte key[16];
  std::memcpy(key, kKey, 16);
  mcrypt_generic_init(module, key, 16, g_chain);
  const auto peer = [module, block, encrypts](std::size_t n) {
    n = wholeBlocks(n, block);
    if (encrypts) {
      mcrypt_generic(module, output(), static_cast<int>(n));
    } else {
      mdecrypt_generic(module, output(), static_cast<int>(n));
    }
  };
  add(name + "libmcrypt", kChainedSizes, peer);
  if (row.mode == CRijndael::ECB && encrypts) {
    addPortable("rijndael_" + std::to_string(8 * block) + "_tables/ours", kChainedSizes, work);
    add("rijndael_" + std::to_string(8 * block) + "_tables/libmcrypt", kChainedSizes, peer);
  }
}

void addRc4() {
  static rc4_key ours;
  prepare_key(kKey, 16, &ours);
  add("rc4/ours", kSizes, [](std::size_t n) { rc4(output(), n, &ours); });
  static RC4_KEY openssl;
  RC4_set_key(&openssl, 16, kKey);
  add("rc4/openssl", kSizes, [](std::size_t n) { RC4(&openssl, n, output(), output()); });
  static arcfour_ctx nettle;
  arcfour_set_key(&nettle, 16, kKey);
  add("rc4/nettle", kSizes, [](std::size_t n) { arcfour_crypt(&nettle, n, output(), output()); });
}

void addMixing() {
  add("mix_encrypt/ours", kSizes, [](std::size_t n) { Encrypt(output(), n, 12345); });
  add("mix_encrypt/ours_unaligned", kSizes, [](std::size_t n) { Encrypt(output() + 1, n, 12345); });
  addPortable("mix_encrypt/scalar", kSizes, [](std::size_t n) { Encrypt(output(), n, 12345); });
  add("mix_decrypt/ours", kSizes, [](std::size_t n) { Decrypt(output(), n, 12345); });
  add("mix_decrypt/ours_unaligned", kSizes, [](std::size_t n) { Decrypt(output() + 1, n, 12345); });
  addPortable("mix_decrypt/scalar", kSizes, [](std::size_t n) { Decrypt(output(), n, 12345); });
}

const bool g_added = [] {
  gcry_check_version(nullptr);
  gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
  gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  addCrc();
  addSums();
  addSha1s();
  addFiles();
  for (const ModeRow& row : kModes) {
    for (bool encrypts : {true, false}) {
      addAes(row, encrypts);
      addLarge(row, 24, encrypts);
      addLarge(row, 32, encrypts);
    }
  }
  addAesTables();
  addRc4();
  addMixing();
  return true;
}();

}  // namespace
