// ipg pay: a standard or card-capture payment, in the payment window, without one (scripted,
// against a sandbox on this machine), or just the request the library builds for it.
#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Command.h"
#include "common/Url.h"
#include "Credentials.h"
#include "Output.h"
#include "Sandbox.h"
#include "ScriptedPayment.h"
#include "Toolkit.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/PaymentWindowOptions.h"
#include "qipg/QuandrelIPG.h"
#ifdef QIPG_HAVE_GTK
#include "qipg/PaymentWindow.h"
#endif
#ifdef QIPG_HAVE_QT
#include "qipg/QtPaymentWindow.h"
#endif

namespace ipg {
namespace {

struct PayOptions {
  GatewayOptions gateway;
  bool standard = false;
  bool card = false;
  std::string order;
  std::string amount;
  std::string currency = "INR";
  std::string description = "ipg payment";
  std::string type = "sale";
  std::string paymentType = "credit";
  std::array<std::string, 10> additional;
  std::string cardFile;
  bool cardStdin = false;
  std::string testCard;
  std::string toolkit = "gtk";
  bool noWindow = false;
  bool printRequest = false;
  bool json = false;
};

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

struct Failure {
  std::string message;
  int exitCode;
};

// Number, expiry, CVV and holder, one a line.
bool cardFromLines(const std::string& text, CardDetails& card) {
  std::size_t at = 0;
  for (std::string* part : {&card.number, &card.expiry, &card.cvv, &card.holder}) {
    if (at > text.size()) return false;
    const std::size_t end = std::min(text.find('\n', at), text.size());
    *part = text.substr(at, end - at);
    if (!part->empty() && part->back() == '\r') part->pop_back();
    at = end + 1;
  }
  return !card.number.empty();
}

// The card from --test-card, --card-file, --card-stdin or QIPG_CARD_*; absent (with no
// failure) when none of them gives one.
std::optional<Failure> readCard(const PayOptions& o, const Gateway& gateway,
                                std::unique_ptr<CardDetails>& card) {
  auto details = std::make_unique<CardDetails>();
  std::string error;
  if (!o.testCard.empty()) {
    const qipg::sandbox::TestCard* named = qipg::sandbox::findTestCard(o.testCard);
    if (named == nullptr) {
      std::string names;
      for (const auto& c : qipg::sandbox::testCards())
        names += std::string(names.empty() ? "" : ", ") + c.name;
      return Failure{"no test card \"" + o.testCard + "\" (" + names + ")", kExitUsage};
    }
    if (!qipg::internal::hasLoopbackHost(gateway.baseURL)) {
      return Failure{"test cards are for a sandbox on this machine, not " + gateway.baseURL,
                     kExitUsage};
    }
    *details = {named->number, qipg::sandbox::testCardExpiry(*named), named->cvv, "Test Holder"};
  } else if (!o.cardFile.empty() || o.cardStdin) {
    std::optional<std::string> text;
    if (o.cardStdin) {
      text.emplace(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
      text = readOwnerOnlyFile(o.cardFile, "card file", error);
    }
    if (!text) return Failure{error, kExitUsage};
    const bool read = cardFromLines(*text, *details);
    wipe(*text);
    if (!read) {
      return Failure{"the card takes four lines: number, expiry (MMYY), CVV, holder name",
                     kExitUsage};
    }
  } else if (const std::string number = environmentValue("QIPG_CARD_NUMBER"); !number.empty()) {
    *details = {number, environmentValue("QIPG_CARD_EXPIRY"), environmentValue("QIPG_CARD_CVV"),
                environmentValue("QIPG_CARD_HOLDER")};
  } else {
    return std::nullopt;
  }
  card = std::move(details);
  return std::nullopt;
}

// The payment page request, built through the library as an application builds it, with
// the credentials it was built with.
std::optional<qipg::URLRequest> buildRequest(const PayOptions& o, const Gateway& gateway,
                                             const CardDetails* card,
                                             std::shared_ptr<qipg::QuandrelIPG>& client,
                                             MerchantCredentials& credentials, Failure& failure) {
  std::string error;
  if (!merchantCredentials(o.gateway, credentials, error)) {
    failure = {error, kExitUsage};
    return std::nullopt;
  }
  client = qipg::QuandrelIPG::create(gateway.environment, gateway.config);
  if (!client) {
    failure = {"cannot create the client (the HTTP transport did not start)", kExitFailed};
    return std::nullopt;
  }
  const std::uint64_t type = o.type == "sale" ? 1 : 0;  // S captures, P only authorises
  const auto& a = o.additional;
  auto recorder = std::make_shared<FailureRecorder>();
  std::optional<qipg::URLRequest> request;
  if (o.card) {
    const std::uint64_t paymentType = o.paymentType == "credit" ? 0 : 1;
    request = client->getCardCapturePaymentRequest(
        o.order, o.amount, o.currency, o.description, type, card->holder, card->number,
        card->expiry, card->cvv, paymentType, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8],
        a[9], credentials.mid, credentials.key, recorder);
  } else {
    request = client->getStandardPaymentRequest(
        o.order, o.amount, o.currency, o.description, type, a[0], a[1], a[2], a[3], a[4], a[5],
        a[6], a[7], a[8], a[9], credentials.mid, credentials.key, recorder);
  }
  if (!request)
    failure = {recorder->message().value_or("the library returned no request"), kExitUsage};
  return request;
}

// The request as text: method and URL, the headers, a blank line and the body as it stands.
// The body holds the sealed message and the MID only, never card data in clear.
void printRequest(const qipg::URLRequest& request, bool json) {
  if (json) {
    nlohmann::ordered_json headers = nlohmann::ordered_json::object();
    for (const auto& [name, value] : request.allHTTPHeaderFields) headers[name] = value;
    std::cout << jsonLine({{"method", request.httpMethod},
                           {"url", request.url ? nlohmann::ordered_json(*request.url) : nullptr},
                           {"headers", headers},
                           {"cachePolicy", static_cast<unsigned>(request.cachePolicy)},
                           {"body", request.bodyText()}});
    return;
  }
  std::cout << request.httpMethod << " " << request.url.value_or("(no URL)") << "\n";
  for (const auto& [name, value] : request.allHTTPHeaderFields) {
    std::cout << name << ": " << value << "\n";
  }
  std::cout << "\n" << request.bodyText() << "\n";
}

// ---- the payment window: every window code path of the command is here.

// The host of an absolute URL as the web views name it (IPv6 without brackets); empty when none.
std::string hostOf(const std::string& url) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  char* host = nullptr;
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) {
    return {};
  }
  std::string name = host;
  curl_free(host);
  if (name.size() > 2 && name.front() == '[') name = name.substr(1, name.size() - 2);
  return name;
}

using RunWindow = std::optional<qipg::PaymentOutcome> (*)(const qipg::URLRequest&,
                                                          qipg::PaymentWindowOptions, std::string*);

// The toolkit's window runner; nullptr when this build lacks it.
RunWindow windowRunner([[maybe_unused]] const std::string& toolkit) {
#ifdef QIPG_HAVE_GTK
  if (toolkit == "gtk") return &qipg::runPaymentWindow;
#endif
#ifdef QIPG_HAVE_QT
  if (toolkit == "qt") return &qipg::runQtPaymentWindow;
#endif
  return nullptr;
}

// Runs the window; when the payment's end was unclear (cancelled, or an unreadable final
// page) the gateway's status record of the order follows the window's own answer.
int openPaymentWindow(const qipg::URLRequest& request,
                      const std::shared_ptr<qipg::QuandrelIPG>& client, const PayOptions& o,
                      const MerchantCredentials& credentials) {
  const RunWindow run = windowRunner(o.toolkit);
  if (run == nullptr) {
    std::cerr << "ipg pay: " << toolkitMissing(o.toolkit)
              << "; use --no-window against a sandbox, or --print-request\n";
    return kExitUsage;
  }
  qipg::PaymentWindowOptions options;
  options.client = client;
  options.title = o.card ? "Card payment" : "Payment";
  if (!client->config().caFile.empty() && request.url) {
    options.trustedCAFile = client->config().caFile;
    options.trustedHost = hostOf(*request.url);
  }
  options.reconcile = qipg::PaymentReconciliation{o.order, credentials.mid, credentials.key, {}};
  std::string error;
  const std::optional<qipg::PaymentOutcome> outcome = run(request, options, &error);
  if (!outcome) {
    std::cerr << "ipg pay: " << error << "\n";
    return kExitFailed;
  }
  if (o.json) {
    nlohmann::ordered_json answer = outcome->cancelled ? nlohmann::ordered_json{{"cancelled", true}}
                                                       : recordJson(outcome->response);
    if (outcome->reconciled) answer["reconciled"] = recordJson(*outcome->reconciled);
    std::cout << jsonLine(answer);
  } else {
    if (outcome->cancelled) {
      std::cout << "cancelled by the customer\n";
    } else {
      printRecord(std::cout, outcome->response, false);
    }
    if (outcome->reconciled) {
      std::cout << "reconciled with the gateway:\n";
      printRecord(std::cout, *outcome->reconciled, false);
    }
  }
  return std::cout.flush() && !outcome->cancelled ? kExitOk : kExitFailed;
}

int runPay(const PayOptions& o) {
  std::string error;
  const std::optional<Gateway> gateway = resolveGateway(o.gateway, error);
  if (!gateway) {
    std::cerr << "ipg pay: " << error << "\n";
    return kExitUsage;
  }
  if (o.card && o.paymentType == "netbanking") {
    std::cerr << "ipg pay: net banking is not offered by the library's card capture; use "
                 "--payment-type credit or debit, or --standard\n";
    return kExitUsage;
  }
  std::unique_ptr<CardDetails> card;
  if (const std::optional<Failure> failure = readCard(o, *gateway, card)) {
    std::cerr << "ipg pay: " << failure->message << "\n";
    return failure->exitCode;
  }
  if (o.card && !card) {
    std::cerr << "ipg pay: --card needs a card: --test-card NAME, --card-file FILE, "
                 "--card-stdin or QIPG_CARD_NUMBER, QIPG_CARD_EXPIRY, QIPG_CARD_CVV, "
                 "QIPG_CARD_HOLDER\n";
    return kExitUsage;
  }
  std::shared_ptr<qipg::QuandrelIPG> client;
  MerchantCredentials credentials;
  Failure failure{"", kExitOk};
  const std::optional<qipg::URLRequest> request =
      buildRequest(o, *gateway, card.get(), client, credentials, failure);
  if (!request) {
    std::cerr << "ipg pay: " << failure.message << "\n";
    return failure.exitCode;
  }
  if (o.printRequest) {
    printRequest(*request, o.json);
    return std::cout.flush() ? kExitOk : kExitFailed;
  }
  if (!o.noWindow) return openPaymentWindow(*request, client, o, credentials);
  const std::optional<qipg::PaymentResponse> record =
      payWithoutWindow(*request, card.get(), gateway->config, error);
  if (!record) {
    std::cerr << "ipg pay: " << error << "\n";
    return kExitFailed;
  }
  printRecord(std::cout, *record, o.json);
  return std::cout.flush() ? kExitOk : kExitFailed;
}

}  // namespace

Command addPayCommand(CLI::App& app) {
  auto o = std::make_shared<PayOptions>();
  CLI::App* sub = app.add_subcommand("pay", "make a standard or card-capture payment");
  sub->footer(
      "Builds the payment page request through the library, exactly as an application gets\n"
      "it, and completes it: in the payment window, as a customer would; with --no-window by\n"
      "posting the gateway's forms over HTTPS as the window would (a sandbox on this machine\n"
      "only: a merchant's CI); or with --print-request just prints it (method, URL, headers,\n"
      "body: the sealed message and the MID). The final page's record is printed, one\n"
      "\"property: value\" line each or one JSON object with --json, and ipg exits 0; a\n"
      "statusCode F is the gateway's verdict. When the library refuses the input, its message\n"
      "is printed and ipg exits 2; a cancelled window or an unreachable page exits 1.\n"
      "When the window cannot tell how the payment ended (the customer cancelled, or the\n"
      "final page could not be read), ipg asks the gateway for the order's status and prints\n"
      "that record too: after a line \"reconciled with the gateway:\", or as the\n"
      "\"reconciled\" member with --json. The window is WebKitGTK's, or Qt WebEngine's with\n"
      "--toolkit qt.\n");
  auto* standard = sub->add_flag("--standard", o->standard,
                                 "standard payment: the customer enters the card on the\n"
                                 "gateway's card form");
  auto* card = sub->add_flag("--card", o->card,
                             "card capture: the card is sent sealed in the request, the gateway\n"
                             "only asks for confirmation");
  standard->excludes(card);
  sub->add_option("--order", o->order, "order ID (letters and digits, at most 30)");
  sub->add_option("--amount", o->amount, "amount, digits and \".\" (e.g. 10.50)");
  sub->add_option("--currency", o->currency, "INR (default) or USD");
  sub->add_option("--description", o->description, "description (default \"ipg payment\")");
  sub->add_option("--type", o->type,
                  "sale (default): authorised and captured at once (S), so it can be refunded;\n"
                  "preauth: authorised only (P), to be cancelled (or captured later)")
      ->check(CLI::IsMember({"sale", "preauth"}));
  sub->add_option("--payment-type", o->paymentType,
                  "card capture: credit (CC, default) or debit (DC) card; netbanking (NB)\n"
                  "is not offered by the library's card capture")
      ->check(CLI::IsMember({"credit", "debit", "netbanking"}));
  for (std::size_t i = 0; i < o->additional.size(); ++i) {
    sub->add_option("--add" + std::to_string(i + 1), o->additional[i],
                    i == 0 ? "additional fields 1 to 10 (default empty)" : "")
        ->group(i == 0 ? "Options" : "");
  }
  auto* testCard =
      sub->add_option(
             "--test-card", o->testCard,
             "a sandbox test card by name: approve, approve-mc, decline, gateway-error, unknown,\n"
             "invalid-number, expired (a loopback gateway only)")
          ->group("Card");
  auto* cardFile = sub->add_option("--card-file", o->cardFile,
                                   "file with number, expiry (MMYY), CVV and holder name, one\n"
                                   "a line; must be owner-only (chmod 600)")
                       ->group("Card");
  auto* cardStdin = sub->add_flag("--card-stdin", o->cardStdin,
                                  "read those four lines from standard input. Else the card\n"
                                  "comes from QIPG_CARD_NUMBER, QIPG_CARD_EXPIRY,\n"
                                  "QIPG_CARD_CVV and QIPG_CARD_HOLDER")
                        ->group("Card");
  testCard->excludes(cardFile)->excludes(cardStdin);
  cardFile->excludes(cardStdin);
  auto* noWindow = sub->add_flag("--no-window", o->noWindow,
                                 "complete the payment over HTTPS without a window, with the\n"
                                 "card given (a sandbox on this machine only)")
                       ->group("Output");
  auto* print =
      sub->add_flag("--print-request", o->printRequest, "print the request instead of paying")
          ->group("Output");
  noWindow->excludes(print);
  addToolkitOption(*sub, o->toolkit)->group("Output");
  sub->add_flag("--json", o->json, "print the record or request as one JSON object")
      ->group("Output");
  addGatewayOptions(*sub, o->gateway);
  sub->callback([o] {
    if (!o->standard && !o->card) throw CLI::RequiredError("--standard or --card");
  });
  return {sub, [o] { return runPay(*o); }};
}

}  // namespace ipg
