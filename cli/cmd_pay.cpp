// ipg pay: a standard or card-capture payment, in the payment window, without one (scripted,
// against a sandbox on this machine), or just the request the library builds for it.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Command.h"
#include "Credentials.h"
#include "Output.h"
#include "Sandbox.h"
#include "ScriptedPayment.h"
#include "Toolkit.h"
#include "common/Url.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/Journal.h"
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
  long timeoutSeconds = 60;
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
  ErrorReport report;
  int exitCode;
};

// A failure that certainly changed nothing.
ErrorReport errorOf(const char* kind, std::string message) {
  return {kind, std::move(message), false, std::nullopt};
}

Failure usage(std::string message) { return {errorOf("Input", std::move(message)), kExitUsage}; }

int fail(const PayOptions& o, const Failure& failure) {
  if (o.json) {
    printError(std::cout, std::cerr, "pay", failure.report, true);
  } else {
    std::cerr << "ipg pay: " << failure.report.message << "\n";
  }
  return failure.exitCode;
}

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
      return usage("no test card \"" + o.testCard + "\" (" + names + ")");
    }
    if (!qipg::internal::hasLoopbackHost(gateway.baseURL)) {
      return usage("test cards are for a sandbox on this machine, not " + gateway.baseURL);
    }
    *details = {named->number, qipg::sandbox::testCardExpiry(*named), named->cvv, "Test Holder"};
  } else if (!o.cardFile.empty() || o.cardStdin) {
    std::optional<std::string> text;
    if (o.cardStdin) {
      text.emplace(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
      text = readOwnerOnlyFile(o.cardFile, "card file", error);
    }
    if (!text) return usage(error);
    const bool read = cardFromLines(*text, *details);
    wipe(*text);
    if (!read) {
      return usage("the card takes four lines: number, expiry (MMYY), CVV, holder name");
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
    failure = {errorOf("Config", error), kExitUsage};
    return std::nullopt;
  }
  client = qipg::QuandrelIPG::create(gateway.environment, gateway.config);
  if (!client) {
    failure = {errorOf("Config", "cannot create the client (the HTTP transport did not start)"),
               kExitFailed};
    return std::nullopt;
  }
  client->setEventHook(verboseHook());
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
  if (!request) failure = usage(recorder->message().value_or("the library returned no request"));
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

// How a payment ended, from the window or without one.
struct PayEnd {
  bool cancelled = false;                           // the customer cancelled the window
  std::optional<qipg::PaymentResponse> record;      // the final page's record, when read
  std::optional<qipg::PaymentResponse> reconciled;  // the gateway's status record, when asked
  std::optional<ErrorReport> error;                 // why there is no usable record
};

// The payment as the outcome journal records it; absent with --no-journal.
std::optional<qipg::PaymentJournal> paymentJournal(const PayOptions& o) {
  const std::string path = journalPath(o.gateway);
  if (path.empty()) return std::nullopt;
  return qipg::PaymentJournal{path, o.order, o.amount, o.currency,
                              o.type == "preauth" ? "P" : "S"};
}

// Opens the journal (saying what opening it had to do); an error when it cannot be.
qipg::Result<std::shared_ptr<qipg::Journal>> openJournal(const qipg::PaymentJournal& about) {
  qipg::Result<std::shared_ptr<qipg::Journal>> opened = qipg::Journal::open(about.path);
  if (opened && !opened.value()->notice().empty()) {
    std::cerr << "ipg pay: " << opened.value()->notice() << "\n";
  }
  return opened;
}

// The entry of a payment made without a window, as the window writes its own: before the
// form is posted, and its end once the payment ends.
class PaymentEntry {
 public:
  // Opens the journal and writes the entry; an error when either fails (nothing is posted).
  std::optional<ErrorReport> begin(const std::optional<qipg::PaymentJournal>& about,
                                   const Gateway& gateway, const std::string& baseURL) {
    if (!about) return std::nullopt;
    qipg::Result<std::shared_ptr<qipg::Journal>> opened = openJournal(*about);
    if (!opened) return errorReport(opened.error());
    journal_ = std::move(opened.value());
    entry_.operation = qipg::JournalOperation::Payment;
    entry_.orderID = about->orderID;
    entry_.amount = about->amount;
    entry_.currency = about->currency;
    entry_.transactionType = about->transactionType;
    entry_.environment = gateway.environment == qipg::IPGEnvironmentTest ? "test" : "production";
    entry_.baseURL = baseURL;
    qipg::Result<std::int64_t> id = journal_->begin(entry_);
    if (!id) return errorReport(id.error());
    entry_.id = id.value();
    return std::nullopt;
  }

  // Records how the payment ended: the final page's record, the gateway's status when it was
  // asked, or the error.
  void end(const PayEnd& end) {
    if (!journal_) return;
    if (end.record) {
      journal_->answered(entry_.id, *end.record);
    } else {
      const ErrorReport error = end.error.value_or(
          errorOf("Cancelled", "the customer cancelled the payment window"));
      qipg::ErrorKind kind = qipg::ErrorKind::Cancelled;
      for (int k = 0; k <= static_cast<int>(qipg::ErrorKind::Journal); ++k) {
        if (qipg::errorKindName(static_cast<qipg::ErrorKind>(k)) == error.kind) {
          kind = static_cast<qipg::ErrorKind>(k);
        }
      }
      // Unknown until the gateway's status says otherwise.
      journal_->failed(entry_.id, {kind, error.message, {}, {}, true});
    }
    if (end.reconciled) {
      entry_.status = end.reconciled;
      entry_.state = qipg::reconciledState(entry_.operation, *end.reconciled)
                         .value_or(qipg::JournalState::Unknown);
      journal_->reconciled(entry_);
    }
  }

 private:
  std::shared_ptr<qipg::Journal> journal_;
  qipg::JournalEntry entry_;
};

// Whether the gateway's status record settles how the payment ended: it answers for the
// order, and it is not pending while a request of ours may still be on its way (a pending
// payment whose customer cancelled the window stays unpaid).
bool settles(const qipg::PaymentResponse& status, bool customerCancelled) {
  return status.orderID() && status.statusCode() &&
         (customerCancelled || *status.statusCode() != "P");
}

// The gateway's status record of the order, asked for as the payment window asks for it when
// a payment's end is unclear: through the client that built the request, with the credentials
// it was built with and no reference number. A call that cannot be made gives a record with
// status "F" and the reason as its description.
qipg::PaymentResponse askStatus(const std::shared_ptr<qipg::QuandrelIPG>& client,
                                const std::string& order, const MerchantCredentials& credentials) {
  auto answer = std::make_shared<std::promise<qipg::PaymentResponse>>();
  auto once = std::make_shared<std::once_flag>();
  std::future<qipg::PaymentResponse> status = answer->get_future();
  auto deliver = [answer, once](const qipg::PaymentResponse& record) {
    std::call_once(*once, [&] { answer->set_value(record); });
  };
  auto failed = [deliver](const std::string& reason) {
    qipg::PaymentResponse record;
    record.setStatusCode(std::string("F"));
    record.setStatusDescription(reason);
    deliver(record);
  };
  client->getTransactionStatus(order, std::string(), credentials.mid, credentials.key,
                               qipg::makeResponseDelegate(deliver, failed, failed));
  return status.get();
}

// Prints how the payment ended and returns the exit code: 0 when its end is known (the final
// page's record, or the gateway's status record when the final page was not read), 1 when the
// customer cancelled or the payment certainly did not go ahead, 5 when it may have gone ahead
// and the gateway's status does not settle it.
int report(const PayOptions& o, PayEnd end) {
  int code = end.cancelled ? kExitFailed : kExitOk;
  if (end.reconciled && !settles(*end.reconciled, end.cancelled)) {
    ErrorReport unknown = end.error.value_or(
        end.cancelled ? errorOf("Cancelled", "the customer cancelled the payment window")
                      : errorOf("Unreadable", "the final page holds no readable result"));
    unknown.outcomeUnknown = true;
    unknown.message +=
        "; the payment may still have gone through and the gateway's status does not settle "
        "it, so confirm with a status inquiry (ipg status --order " +
        o.order + ") before paying again";
    end.error = unknown;
    code = kExitOutcomeUnknown;
  } else if (end.error && !end.reconciled) {
    code = kExitFailed;
  }
  const bool reportError = end.error && code != kExitOk;
  if (o.json) {
    nlohmann::ordered_json answer = end.cancelled ? nlohmann::ordered_json{{"cancelled", true}}
                                    : end.record  ? recordJson(*end.record)
                                                  : nlohmann::ordered_json::object();
    if (end.reconciled) answer["reconciled"] = recordJson(*end.reconciled);
    if (reportError) answer["error"] = errorJson(*end.error);
    std::cout << jsonLine(answer);
  } else {
    if (end.cancelled) std::cout << "cancelled by the customer\n";
    if (end.record) printRecord(std::cout, *end.record, false);
    if (end.error && !reportError) {
      std::cerr << "ipg pay: " << end.error->message
                << "; the gateway's status of the order follows\n";
    }
    if (end.reconciled) {
      std::cout << "reconciled with the gateway:\n";
      printRecord(std::cout, *end.reconciled, false);
    }
    if (reportError) std::cerr << "ipg pay: " << end.error->message << "\n";
  }
  return std::cout.flush() ? code : kExitFailed;
}

// Runs the window; when the payment's end was unclear (cancelled, or an unreadable final
// page) the window asks the gateway for the order's status record.
int openPaymentWindow(const qipg::URLRequest& request,
                      const std::shared_ptr<qipg::QuandrelIPG>& client, const PayOptions& o,
                      const MerchantCredentials& credentials) {
  const RunWindow run = windowRunner(o.toolkit);
  if (run == nullptr) {
    return fail(o,
                {errorOf("Config", toolkitMissing(o.toolkit) +
                                       "; use --no-window against a sandbox, or --print-request"),
                 kExitUsage});
  }
  qipg::PaymentWindowOptions options;
  options.client = client;
  if (o.card) options.title = "Card payment";  // else the chrome's own word, in its language
  options.trustedCAFile = client->config().caFile;  // for the request's own host
  options.reconcile = qipg::PaymentReconciliation{o.order, credentials.mid, credentials.key, {}};
  // The window writes the entry; a journal that cannot be opened keeps it from opening.
  options.journal = paymentJournal(o);
  if (options.journal) {
    if (auto opened = openJournal(*options.journal); !opened) {
      return fail(o, {errorReport(opened.error()), kExitFailed});
    }
  }
  std::string error;
  const std::optional<qipg::PaymentOutcome> outcome = run(request, options, &error);
  if (!outcome) return fail(o, {errorOf("Config", error), kExitFailed});
  PayEnd end{outcome->cancelled, std::nullopt, outcome->reconciled, std::nullopt};
  if (!outcome->cancelled) end.record = outcome->response;
  return report(o, std::move(end));
}

// The events of a payment without a window, as a window reports its own: opened, each page
// loaded, the final page read. Reported at once, on this thread.
class ScriptedEvents {
 public:
  ScriptedEvents(qipg::EventHook hook, const std::string& orderID, const std::string& baseURL)
      : hook_(std::move(hook)) {
    base_.callID = 1;
    base_.operation = "payment";
    base_.orderID = orderID;
    base_.baseURL = baseURL;
    emit(qipg::EventKind::WindowOpened);
  }
  void emit(qipg::EventKind kind) { report(event(kind)); }
  void ended(const ScriptedOutcome& outcome) {
    qipg::Event read = event(qipg::EventKind::FinalPageRead);
    if (outcome.record) {
      read.statusCode = outcome.record->statusCode().value_or("");
      read.transactionRefNumber = outcome.record->transactionReferenceNo().value_or("");
    } else {
      read.error = outcome.kind;
      read.outcomeUnknown = outcome.unclear;
      read.httpStatus = outcome.httpStatus.value_or(0);
    }
    report(read);
  }

 private:
  qipg::Event event(qipg::EventKind kind) const {
    qipg::Event made = base_;
    made.kind = kind;
    made.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - started_);
    return made;
  }
  void report(const qipg::Event& event) const {
    if (hook_) hook_(event);
  }

  qipg::EventHook hook_;
  qipg::Event base_;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

// Completes the payment without a window; a payment whose final page was not read is
// confirmed with the gateway's status, as the window confirms an unclear one.
int payScripted(const qipg::URLRequest& request, const CardDetails* card,
                const std::shared_ptr<qipg::QuandrelIPG>& client, const PayOptions& o,
                const MerchantCredentials& credentials, PaymentEntry& entry) {
  ScriptedEvents events(client->eventHook(), o.order, client->CurrentDomainURL());
  ScriptedOutcome outcome = payWithoutWindow(
      request, card, qipg::internal::returnURL(client->CurrentDomainURL()),
      client->config().caFile, o.timeoutSeconds,
      [&events] { events.emit(qipg::EventKind::PageLoaded); });
  events.ended(outcome);
  PayEnd end;
  end.record = std::move(outcome.record);
  if (!end.record) {
    end.error = ErrorReport{std::string(qipg::errorKindName(outcome.kind)), outcome.error, false,
                            outcome.httpStatus};
    if (outcome.kind == qipg::ErrorKind::Input || outcome.kind == qipg::ErrorKind::Config) {
      return fail(o, {*end.error, kExitFailed});
    }
  }
  if (outcome.unclear) end.reconciled = askStatus(client, o.order, credentials);
  entry.end(end);
  return report(o, std::move(end));
}

int runPay(const PayOptions& o) {
  std::string error;
  const std::optional<Gateway> gateway = resolveGateway(o.gateway, error);
  if (!gateway) return fail(o, {errorOf("Config", error), kExitUsage});
  if (o.card && o.paymentType == "netbanking") {
    return fail(o, usage("net banking is not offered by the library's card capture; use "
                         "--payment-type credit or debit, or --standard"));
  }
  std::unique_ptr<CardDetails> card;
  if (const std::optional<Failure> failure = readCard(o, *gateway, card)) return fail(o, *failure);
  if (o.card && !card) {
    return fail(o, usage("--card needs a card: --test-card NAME, --card-file FILE, "
                         "--card-stdin or QIPG_CARD_NUMBER, QIPG_CARD_EXPIRY, QIPG_CARD_CVV, "
                         "QIPG_CARD_HOLDER"));
  }
  std::shared_ptr<qipg::QuandrelIPG> client;
  MerchantCredentials credentials;
  Failure failure{{}, kExitOk};
  const std::optional<qipg::URLRequest> request =
      buildRequest(o, *gateway, card.get(), client, credentials, failure);
  if (!request) return fail(o, failure);
  if (o.printRequest) {
    printRequest(*request, o.json);
    return std::cout.flush() ? kExitOk : kExitFailed;
  }
  if (!o.noWindow) return openPaymentWindow(*request, client, o, credentials);
  PaymentEntry entry;
  if (std::optional<ErrorReport> problem =
          entry.begin(paymentJournal(o), *gateway, client->CurrentDomainURL())) {
    problem->message += "; the payment was not started";
    return fail(o, {*problem, kExitFailed});
  }
  return payScripted(*request, card.get(), client, o, credentials, entry);
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
      "When ipg cannot tell how the payment ended (the customer cancelled, the final page\n"
      "could not be read, or a page's request left and no answer came), it asks the gateway\n"
      "for the order's status and prints that record too: after a line \"reconciled with the\n"
      "gateway:\", or as the \"reconciled\" member with --json. When that record does not\n"
      "settle it either, ipg exits 5: the payment may have gone through, so confirm with\n"
      "ipg status before paying again. Errors print on standard error, or with --json as\n"
      "{\"error\": {\"kind\": ..., \"message\": ..., \"outcomeUnknown\": true|false}} on\n"
      "standard output. The window is WebKitGTK's, or Qt WebEngine's with --toolkit qt.\n");
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
  sub->add_option("--timeout", o->timeoutSeconds,
                  "with --no-window: time limit of each page in seconds (default 60)")
      ->check(CLI::Range(1L, 3600L))
      ->group("Output");
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
