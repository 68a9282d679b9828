// Helper of scripts/check-install, built against the installed package.
//   install_check version                       header and library versions; 1 if they differ
//   install_check pay ORDER AMOUNT TYPE BODY    a standard payment request (type 0 authorise,
//                                               1 sale) for the sandbox's test merchant, key
//                                               in QIPG_KEY: prints its URL, writes its body
#include <qipg/PaymentWindow.h>
#include <qipg/qipg.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "version") == 0) {
    std::printf("header %s library %s\n", QIPG_VERSION_STRING, qipg::runtimeVersion());
    // The window library is linked and loaded too.
    auto* const window = &qipg::runPaymentWindow;
    return std::strcmp(QIPG_VERSION_STRING, qipg::runtimeVersion()) == 0 && window ? 0 : 1;
  }
  const char* key = std::getenv("QIPG_KEY");
  if (argc != 6 || std::strcmp(argv[1], "pay") != 0 || key == nullptr) {
    std::fprintf(stderr, "usage: install_check version | pay ORDER AMOUNT TYPE BODY_FILE\n");
    return 2;
  }
  const auto client = qipg::QuandrelIPG::create();
  if (!client) return 1;
  const auto request = client->getStandardPaymentRequest(
      argv[2], argv[3], "INR", "install check", std::strtoull(argv[4], nullptr, 10), "", "", "", "",
      "", "", "", "", "", "", "QIPGTEST0001", key,
      qipg::makeResponseDelegate({}, {}, [](const std::string& message) {
        std::fprintf(stderr, "refused: %s\n", message.c_str());
      }));
  if (!request || !request->url) return 1;
  std::ofstream(argv[5], std::ios::binary) << request->bodyText();
  std::printf("%s\n", request->url->c_str());
  return 0;
}
