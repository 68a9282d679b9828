// ipg pay: start a standard or card-capture payment.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <set>
#include <string>
#include <string_view>

#include "Command.h"
#include "Output.h"
#include "Credentials.h"
#include "PayRequest.h"
#include "qipg/IPGResponseDelegate.h"
#ifdef QIPG_HAVE_GTK
#include "qipg/PaymentWindow.h"
#endif

namespace ipg {
namespace {

// Records the message of a failed payment call.
class FailureRecorder : public qipg::IPGResponseDelegate {
 public:
  void didReceivePaymentResponse(const qipg::PaymentResponse&) override {}
  void didReceiveInputError(const std::string& message) override { message_ = message; }
  void requestFailedError(const std::string& message) override { message_ = message; }
  const std::optional<std::string>& message() const { return message_; }

 private:
  std::optional<std::string> message_;
};

// The decimal value of `--name`; `fallback` when the flag is not there; absent (with
// `error` set) when it is not a number.
std::optional<std::uint64_t> numberFlag(const Args& args, std::string_view name,
                                        std::uint64_t fallback, std::string& error) {
  const std::optional<std::string> text = flagValue(args, name);
  if (!text) return fallback;
  std::uint64_t value = 0;
  const char* end = text->data() + text->size();
  const auto [ptr, ec] = std::from_chars(text->data(), end, value);
  if (text->empty() || ec != std::errc() || ptr != end) {
    error = "--" + std::string(name) + " must be a non-negative whole number";
    return std::nullopt;
  }
  return value;
}

qipg::Text textFlag(const Args& args, std::string_view name) { return flagValue(args, name); }

const FlagSet kValueFlags = {
    "order", "amount", "currency",     "description", "type", "card-number", "expiry",
    "cvv",   "holder", "payment-type", "add1",        "add2", "add3",        "add4",
    "add5",  "add6",   "add7",         "add8",        "add9", "add10",       "mid",
    "key",   "env",    "base-url",     "ca-file"};
const FlagSet kBareFlags = {"standard", "card", "print-request", "json"};

// The request as text: method and URL, the headers, a blank line and the body as it stands.
// The body holds the sealed message and the MID only, never card data in clear.
void printRequest(const qipg::URLRequest& request, bool json) {
  if (json) {
    std::cout << "{\"method\":" << jsonString(request.httpMethod)
              << ",\"url\":" << (request.url ? jsonString(*request.url) : "null")
              << ",\"headers\":{";
    bool first = true;
    for (const auto& [name, value] : request.allHTTPHeaderFields) {
      std::cout << (first ? "" : ",") << jsonString(name) << ":" << jsonString(value);
      first = false;
    }
    std::cout << "},\"cachePolicy\":" << static_cast<unsigned>(request.cachePolicy)
              << ",\"body\":" << jsonString(request.bodyText()) << "}\n";
    return;
  }
  std::cout << request.httpMethod << " " << request.url.value_or("(no URL)") << "\n";
  for (const auto& [name, value] : request.allHTTPHeaderFields) {
    std::cout << name << ": " << value << "\n";
  }
  std::cout << "\n" << request.bodyText() << "\n";
}

// ---- the payment window

#ifdef QIPG_HAVE_GTK
// The host of an absolute URL as WebKit names it (IPv6 without brackets); empty when none.
std::string hostOf(std::string_view url) {
  const std::size_t sep = url.find("://");
  if (sep == std::string_view::npos) return {};
  std::string_view authority = url.substr(sep + 3);
  authority = authority.substr(0, authority.find_first_of("/?#"));
  const std::size_t at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  if (!authority.empty() && authority.front() == '[') {
    const std::size_t close = authority.find(']');
    return close == std::string_view::npos ? std::string()
                                           : std::string(authority.substr(1, close - 1));
  }
  return std::string(authority.substr(0, authority.find(':')));
}

// Shows the payment page for `request` until the customer is done; prints the outcome.
int openPaymentWindow(const qipg::URLRequest& request, const PaymentBuild& build, bool json) {
  qipg::PaymentWindowOptions options;
  options.gateway = build.client->config();
  options.title = build.cardCapture ? "Card payment" : "Payment";
  if (!options.gateway.caFile.empty() && request.url) {
    options.trustedCAFile = options.gateway.caFile;
    options.trustedHost = hostOf(*request.url);
  }
  std::string error;
  const std::optional<qipg::PaymentOutcome> outcome =
      qipg::runPaymentWindow(request, options, &error);
  if (!outcome) {
    std::cerr << "ipg pay: " << error << "\n";
    return 1;
  }
  if (outcome->cancelled) {
    std::cout << (json ? "{\"cancelled\":true}" : "cancelled by the customer") << "\n";
    return 1;
  }
  printRecord(std::cout, outcome->response, json);
  return std::cout.flush() ? 0 : 1;
}
#else
int openPaymentWindow(const qipg::URLRequest&, const PaymentBuild&, bool) {
  std::cerr << "ipg pay: the payment window is not available in this build; use "
               "--print-request to see the request\n";
  return 1;
}
#endif

const char* const kUsage =
    "usage: ipg pay --standard|--card [FIELDS] [CREDENTIALS] [--print-request] [--json]\n"
    "\n"
    "Builds the payment page request through the library, exactly as an application would\n"
    "get it, and prints it: method, URL, headers and body. The body carries the sealed\n"
    "message and the MID; card number and CVV are never printed. With --json, one JSON\n"
    "object. When the library refuses the input, its message is printed and ipg exits 1.\n"
    "Without --print-request the payment opens in a window, as a customer would see it;\n"
    "when the gateway's final page has been read, its record is printed (with --json as\n"
    "one JSON object) and ipg exits 0; when the customer cancels, it prints \"cancelled by\n"
    "the customer\" and exits 1. A CA file (--ca-file or QIPG_CA_FILE) is trusted by the\n"
    "window for the gateway's host only.\n"
    "\n";

int runPay(const Args& args) {
  if (std::optional<std::string> problem = unknownArgument(args, kValueFlags, kBareFlags)) {
    std::cerr << "ipg pay: " << *problem << " (see ipg pay --help)\n";
    return 2;
  }
  PaymentBuild build;
  const std::optional<qipg::URLRequest> request = buildPaymentRequest(args, build);
  if (!request) {
    std::cerr << "ipg pay: " << build.error << "\n";
    return build.exitCode;
  }
  if (!hasFlag(args, "print-request")) {
    return openPaymentWindow(*request, build, hasFlag(args, "json"));
  }
  printRequest(*request, hasFlag(args, "json"));
  return std::cout.flush() ? 0 : 1;
}

std::string usageText() {
  return std::string(kUsage) + kPaymentFlagsHelp + "\n" + kCredentialsHelp;
}

const Registration registration{
    {"pay", "build a standard or card-capture payment request", usageText(), &runPay}};

}  // namespace

const char* const kPaymentFlagsHelp =
    "payment:\n"
    "  --standard | --card      standard payment (gateway's pages) or card capture\n"
    "  --order ID               order ID (letters and digits, at most 30)\n"
    "  --amount AMOUNT          amount, digits and \".\" (e.g. 10.50)\n"
    "  --currency INR|USD       currency\n"
    "  --description TEXT       description (checked; carried only by card capture)\n"
    "  --type N                 0 purchase (P), 1 sale (S); default 0\n"
    "  --add1 .. --add10 TEXT   additional fields (default empty)\n"
    "card capture:\n"
    "  --card-number DIGITS  --expiry MMYY  --cvv DIGITS  --holder NAME\n"
    "  --payment-type N         0 credit card (CC), anything else debit card (DC); default 0\n"
    "output:\n"
    "  --print-request          print the request instead of opening the payment window\n"
    "  --json                   print it as a JSON object\n";

std::optional<qipg::URLRequest> buildPaymentRequest(const Args& args, PaymentBuild& build) {
  const bool standard = hasFlag(args, "standard");
  build.cardCapture = hasFlag(args, "card");
  if (standard == build.cardCapture) {
    build.error = "give exactly one of --standard and --card";
    build.exitCode = 2;
    return std::nullopt;
  }
  std::string error;
  const std::optional<std::uint64_t> type = numberFlag(args, "type", 0, error);
  const std::optional<std::uint64_t> paymentType = numberFlag(args, "payment-type", 0, error);
  const std::optional<std::uint64_t> environment = environmentType(args, error);
  if (!type || !paymentType || !environment) {
    build.error = error;
    build.exitCode = 2;
    return std::nullopt;
  }

  const qipg::GatewayConfig config = gatewayConfig(args, *environment);
  if (qipg::Text problem = config.problem()) {
    build.error = *problem;
    build.exitCode = 1;
    return std::nullopt;
  }
  build.client = qipg::QuandrelIPG::create(*environment, config);
  if (!build.client) {
    build.error = "cannot create the client (the HTTP transport did not start)";
    build.exitCode = 1;
    return std::nullopt;
  }

  qipg::Text add[10];
  for (int i = 0; i < 10; ++i) {
    add[i] = flagValue(args, "add" + std::to_string(i + 1)).value_or("");
  }
  const MerchantCredentials credentials = merchantCredentials(args);
  auto recorder = std::make_shared<FailureRecorder>();
  std::optional<qipg::URLRequest> request;
  if (build.cardCapture) {
    request = build.client->getCardCapturePaymentRequest(
        textFlag(args, "order"), textFlag(args, "amount"), textFlag(args, "currency"),
        textFlag(args, "description"), *type, textFlag(args, "holder"),
        textFlag(args, "card-number"), textFlag(args, "expiry"), textFlag(args, "cvv"),
        *paymentType, add[0], add[1], add[2], add[3], add[4], add[5], add[6], add[7], add[8],
        add[9], credentials.mid, credentials.key, recorder);
  } else {
    request = build.client->getStandardPaymentRequest(
        textFlag(args, "order"), textFlag(args, "amount"), textFlag(args, "currency"),
        textFlag(args, "description"), *type, add[0], add[1], add[2], add[3], add[4], add[5],
        add[6], add[7], add[8], add[9], credentials.mid, credentials.key, recorder);
  }
  if (!request) {
    build.error = recorder->message().value_or("the library returned no request");
    build.exitCode = 1;
  }
  return request;
}

}  // namespace ipg
