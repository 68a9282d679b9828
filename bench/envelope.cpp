// Sealing and opening a 200-byte message with the library's envelope, beside the same work
// (SHA-256 of the merchant key, AES-256-CBC, Base64 in 76-column lines, "+" as "%2B") done
// with OpenSSL directly and the IV held in memory. The difference is the library's own cost,
// including reading the IV from the user-defaults store (its memory) on every call.
//
// The store is a temporary file (QIPG_DEFAULTS_FILE), removed at exit.

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "Ratio.h"
#include "common/Ascii.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "security/UserDefaults.h"

namespace {

const std::string kMerchantKey = "merchant-key-for-the-benchmark-0001";
const std::string kIv = "4e9a1c07b3d58f26";

std::string message() {
  std::string m = "ORD-000123|TXN-20240101-000456|100.00|LKR|Purchase|-|-|-|-|";
  while (m.size() < 200) m += "field|";
  m.resize(200);
  return m;
}

// ---- the baseline: the same steps on OpenSSL alone

std::string baselineKey(const std::string& merchantKey) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(merchantKey.data()), merchantKey.size(), digest);
  static const char hex[] = "0123456789abcdef";
  std::string key(32, '\0');
  for (int i = 0; i < 16; ++i) {
    key[2 * i] = hex[digest[i] >> 4];
    key[2 * i + 1] = hex[digest[i] & 15];
  }
  return key;
}

std::optional<std::string> cbc(bool encrypt, const std::string& key, const unsigned char* in,
                               int size) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  std::string out(static_cast<std::size_t>(size) + 16, '\0');
  auto* o = reinterpret_cast<unsigned char*>(out.data());
  int n = 0, last = 0;
  const bool ok =
      EVP_CipherInit_ex(ctx, EVP_aes_256_cbc(), nullptr,
                        reinterpret_cast<const unsigned char*>(key.data()),
                        reinterpret_cast<const unsigned char*>(kIv.data()), encrypt) == 1 &&
      EVP_CipherUpdate(ctx, o, &n, in, size) == 1 && EVP_CipherFinal_ex(ctx, o + n, &last) == 1;
  EVP_CIPHER_CTX_free(ctx);
  if (!ok) return std::nullopt;
  out.resize(static_cast<std::size_t>(n + last));
  return out;
}

std::string baselineSeal(const std::string& plain) {
  const std::string key = baselineKey(kMerchantKey);
  const auto sealed = cbc(true, key, reinterpret_cast<const unsigned char*>(plain.data()),
                          static_cast<int>(plain.size()));
  std::string line(4 * ((sealed->size() + 2) / 3) + 1, '\0');
  const int chars = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(line.data()),
                                    reinterpret_cast<const unsigned char*>(sealed->data()),
                                    static_cast<int>(sealed->size()));
  line.resize(static_cast<std::size_t>(chars));
  std::string out;
  out.reserve(line.size() * 2);
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (i != 0 && i % 76 == 0) out += "\r\n";
    if (line[i] == '+') {
      out += "%2B";
    } else {
      out += line[i];
    }
  }
  return out;
}

std::optional<std::string> baselineOpen(const std::string& text) {
  const std::string key = baselineKey(kMerchantKey);
  std::string b64;
  b64.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 3, "%2B") == 0) {
      b64 += '+';
      i += 2;
    } else if (text[i] != '\r' && text[i] != '\n') {
      b64 += text[i];
    }
  }
  std::string raw(b64.size() / 4 * 3, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(raw.data()),
                          reinterpret_cast<const unsigned char*>(b64.data()),
                          static_cast<int>(b64.size()));
  if (n < 0) return std::nullopt;
  for (std::size_t i = b64.size(); i > 0 && b64[i - 1] == '='; --i) --n;
  return cbc(false, key, reinterpret_cast<const unsigned char*>(raw.data()), n);
}

// ---- figures

void BM_Seal(benchmark::State& state) {
  const std::string plain = message();
  for (auto _ : state) benchmark::DoNotOptimize(qipg::encryptTextWithEncKey(plain, kMerchantKey));
}
BENCHMARK(BM_Seal);

void BM_SealBaseline(benchmark::State& state) {
  const std::string plain = message();
  for (auto _ : state) benchmark::DoNotOptimize(baselineSeal(plain));
}
BENCHMARK(BM_SealBaseline);

void BM_Open(benchmark::State& state) {
  const std::string text = qipg::encryptTextWithEncKey(message(), kMerchantKey);
  if (qipg::decryptTextWithDecryptionKey(text, kMerchantKey) != message()) {
    state.SkipWithError("the envelope does not open");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(qipg::decryptTextWithDecryptionKey(text, kMerchantKey));
}
BENCHMARK(BM_Open);

void BM_OpenBaseline(benchmark::State& state) {
  const std::string text = baselineSeal(message());
  if (text != qipg::encryptTextWithEncKey(message(), kMerchantKey) ||
      baselineOpen(text) != message()) {
    state.SkipWithError("the baseline does not agree with the library");
  }
  for (auto _ : state) benchmark::DoNotOptimize(baselineOpen(text));
}
BENCHMARK(BM_OpenBaseline);

// The IV read alone: as the envelope does it (from memory, this process having stored it),
// and straight from SQLite every time, as a store that never wrote it reads it.
void BM_ReadIV(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(qipg::CommonUtilities::getRandomIVforKey("randomIV"));
}
BENCHMARK(BM_ReadIV);

void BM_ReadIVUncached(benchmark::State& state) {
  qipg::internal::UserDefaults::Options options;
  options.cacheReads = false;
  qipg::internal::UserDefaults store(options);
  for (auto _ : state) benchmark::DoNotOptimize(store.stringForKey("randomIV"));
}
BENCHMARK(BM_ReadIVUncached);

}  // namespace

int main(int argc, char** argv) {
  char dir[] = "/tmp/qipg-bench-XXXXXX";
  if (mkdtemp(dir) == nullptr) return 1;
  const std::string file = std::string(dir) + "/defaults.sqlite3";
  setenv("QIPG_DEFAULTS_FILE", file.c_str(), 1);
  qipg::CommonUtilities::SetRandomIV(kIv, "randomIV");

  const int rc = qipg_bench::runWithRatios(argc, argv,
                                           {{"BM_Seal", "BM_SealBaseline"},
                                            {"BM_Open", "BM_OpenBaseline"},
                                            {"BM_ReadIV", "BM_SealBaseline"},
                                            {"BM_ReadIVUncached", "BM_SealBaseline"}});
  for (const char* suffix : {"", "-journal"}) std::remove((file + suffix).c_str());
  rmdir(dir);
  return rc;
}
