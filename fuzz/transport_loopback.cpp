// The loopback rule, which decides whether a base URL may use plain http and a request may
// bypass a proxy: any text gives a verdict, and the verdict holds for the URL as libcurl writes
// it back, so the text and what libcurl connects to never disagree.
#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzedText.h"
#include "common/Url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string url(reinterpret_cast<const char*>(data), size);
  const bool loopback = qipg::internal::hasLoopbackHost(url);
  // libcurl reads a C string: text with a NUL in it is not the URL libcurl would see.
  if (url.find('\0') != std::string::npos) {
    qipg_fuzz::expect(!loopback);
    return 0;
  }
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
  char* written = nullptr;
  if (handle && curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
      curl_url_get(handle.get(), CURLUPART_URL, &written, 0) == CURLUE_OK) {
    const std::string again(written);
    curl_free(written);
    qipg_fuzz::expect(qipg::internal::hasLoopbackHost(again) == loopback);
  } else {
    qipg_fuzz::expect(!loopback);
  }
  return 0;
}
