#include "ui/window/Session.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "common/Url.h"
#include "net/Events.h"
#include "qipg/Client.h"
#include "qipg/Journal.h"

namespace qipg::internal {
namespace {

// Asks the gateway's status of the reconciled order; `deliver` hears the record, or one with
// status "F" and the reason, on any thread.
using AskStatus = std::function<void(const PaymentReconciliation& reconcile,
                                     std::function<void(PaymentResponse record)> deliver)>;

// What a window needs of the client that built its request, of either layer.
struct WindowClient {
  GatewayConfig config;  // where the final page is
  std::string baseURL;   // the base URL in use
  EventHook eventHook;
  AskStatus askStatus;
};

PaymentResponse failedStatus(const std::string& reason) {
  PaymentResponse record;
  record.setStatusCode("F");
  record.setStatusDescription(reason);
  return record;
}

class ReconcilingDelegate final : public IPGPaymentControllerDelegate {
 public:
  ReconcilingDelegate(std::shared_ptr<IPGPaymentControllerDelegate> host, AskStatus askStatus,
                      PaymentReconciliation reconcile, PostToWindowThread post)
      : host_(host),
        askStatus_(std::move(askStatus)),
        reconcile_(std::move(reconcile)),
        post_(std::move(post)) {}

  void didTransactionComplete(const PaymentResponse& response) override {
    if (auto host = host_.lock()) host->didTransactionComplete(response);
    if (needsReconciliation(false, response)) ask();
  }
  void didTransactionCancelledByUser() override {
    if (auto host = host_.lock()) host->didTransactionCancelledByUser();
    ask();
  }

 private:
  void ask() {
    if (asked_) return;
    asked_ = true;
    askStatus_(reconcile_, [onStatus = reconcile_.onStatus, post = post_](PaymentResponse record) {
      post([onStatus, record = std::move(record)] {
        if (onStatus) onStatus(record);
      });
    });
  }

  std::weak_ptr<IPGPaymentControllerDelegate> host_;
  AskStatus askStatus_;
  PaymentReconciliation reconcile_;
  PostToWindowThread post_;
  bool asked_ = false;
};

// Records how the payment ended in its journal entry, then passes each message on.
class JournalingDelegate final : public IPGPaymentControllerDelegate {
 public:
  JournalingDelegate(std::shared_ptr<IPGPaymentControllerDelegate> inner,
                     std::shared_ptr<Journal> journal, std::int64_t entry)
      : inner_(std::move(inner)), journal_(std::move(journal)), entry_(entry) {}

  void didTransactionComplete(const PaymentResponse& response) override {
    if (needsReconciliation(false, response)) {
      journal_->failed(entry_, {ErrorKind::Unreadable, "the final page held no readable result",
                                {}, {}, true});
    } else {
      journal_->answered(entry_, response);
    }
    if (inner_) inner_->didTransactionComplete(response);
  }
  void didTransactionCancelledByUser() override {
    journal_->failed(entry_, {ErrorKind::Cancelled, "the customer cancelled the payment window",
                              {}, {}, true});
    if (inner_) inner_->didTransactionCancelledByUser();
  }

 private:
  std::shared_ptr<IPGPaymentControllerDelegate> inner_;
  std::shared_ptr<Journal> journal_;
  std::int64_t entry_;
};

// Tells the window's events how the payment ended, then passes each message on.
class EventingDelegate final : public IPGPaymentControllerDelegate {
 public:
  EventingDelegate(std::shared_ptr<IPGPaymentControllerDelegate> inner,
                   std::shared_ptr<const CallEvents> events)
      : inner_(std::move(inner)), events_(std::move(events)) {}

  void didTransactionComplete(const PaymentResponse& response) override {
    Event read = events_->event(EventKind::FinalPageRead);
    read.statusCode = response.statusCode().value_or("");
    read.transactionRefNumber = response.transactionReferenceNo().value_or("");
    if (response.orderID()) read.orderID = *response.orderID();
    if (needsReconciliation(false, response)) {
      read.error = ErrorKind::Unreadable;
      read.outcomeUnknown = true;
    }
    events_->emit(std::move(read));
    if (inner_) inner_->didTransactionComplete(response);
  }
  void didTransactionCancelledByUser() override {
    Event read = events_->event(EventKind::FinalPageRead);
    read.error = ErrorKind::Cancelled;
    read.outcomeUnknown = true;
    events_->emit(std::move(read));
    if (inner_) inner_->didTransactionCancelledByUser();
  }

 private:
  std::shared_ptr<IPGPaymentControllerDelegate> inner_;
  std::shared_ptr<const CallEvents> events_;
};

// The options' client (`client` or `cppClient`); absent without one.
std::optional<WindowClient> windowClient(const PaymentWindowOptions& options) {
  if (options.client) {
    return WindowClient{options.client->config(), options.client->CurrentDomainURL(),
                        options.client->eventHook(),
                        [client = options.client](const PaymentReconciliation& reconcile,
                                                  std::function<void(PaymentResponse)> deliver) {
                          auto answer = makeResponseDelegate(
                              deliver,
                              [deliver](const std::string& why) { deliver(failedStatus(why)); },
                              [deliver](const std::string& why) { deliver(failedStatus(why)); });
                          client->getTransactionStatus(reconcile.orderID, std::string(),
                                                       reconcile.merchantID,
                                                       reconcile.encryptionKey, answer);
                        }};
  }
  if (options.cppClient) {
    return WindowClient{options.cppClient->config(), options.cppClient->baseURL(),
                        options.cppClient->eventHook(),
                        [client = options.cppClient](const PaymentReconciliation& reconcile,
                                                     std::function<void(PaymentResponse)> deliver) {
                          client->status({.orderID = reconcile.orderID},
                                         [deliver](Result<PaymentResponse> status) {
                                           deliver(status ? status.value()
                                                          : failedStatus(status.error().message));
                                         });
                        }};
  }
  return std::nullopt;
}

// The events of a window's payment, started (WindowOpened); nothing without a client's hook.
std::shared_ptr<const CallEvents> windowEvents(const PaymentWindowOptions& options,
                                               const std::optional<WindowClient>& client) {
  if (!client) return std::make_shared<const CallEvents>();
  std::string orderID = options.reconcile ? options.reconcile->orderID
                        : options.journal ? options.journal->orderID
                                          : std::string();
  return std::make_shared<const CallEvents>(EventSink::create(client->eventHook), "payment",
                                            std::move(orderID), std::string(), client->baseURL,
                                            EventKind::WindowOpened);
}

// The delegate to give the controller: `host` itself, or with `options.reconcile` and a client,
// a delegate that reconciles an unclear payment.
std::shared_ptr<IPGPaymentControllerDelegate> windowDelegate(
    std::shared_ptr<IPGPaymentControllerDelegate> host, const PaymentWindowOptions& options,
    PostToWindowThread post, const std::optional<WindowClient>& client) {
  if (!options.reconcile || !client) return host;
  return std::make_shared<ReconcilingDelegate>(std::move(host), client->askStatus,
                                               *options.reconcile, std::move(post));
}

// The payment's journal entry, written before its page loads.
struct JournalEntryWritten {
  std::shared_ptr<Journal> journal;
  JournalEntry entry;
  std::string problem;  // why it could not be written
};

JournalEntryWritten writeJournalEntry(const PaymentWindowOptions& options,
                                      const std::optional<WindowClient>& client) {
  JournalEntryWritten written;
  const PaymentJournal& about = *options.journal;
  Result<std::shared_ptr<Journal>> opened = Journal::open(about.path);
  if (!opened) {
    written.problem = opened.error().message;
    return written;
  }
  written.journal = std::move(opened.value());
  JournalEntry& entry = written.entry;
  entry.operation = JournalOperation::Payment;
  entry.orderID = about.orderID;
  entry.amount = about.amount;
  entry.currency = about.currency;
  entry.transactionType = about.transactionType;
  if (client) {
    entry.baseURL = client->baseURL;
    entry.environment = client->baseURL == client->config.testBaseURL ? "test" : "production";
  }
  Result<std::int64_t> id = written.journal->begin(entry);
  if (!id) {
    written.problem = id.error().message;
    written.journal.reset();
    return written;
  }
  entry.id = id.value();
  return written;
}

}  // namespace

std::optional<std::string> optionsProblem(const PaymentWindowOptions& options) {
  if (options.client && options.cppClient) {
    return "give the window one client: options.client or options.cppClient, not both";
  }
  if (options.reconcile && !options.client && !options.cppClient) {
    return "reconciliation needs the client that built the request (options.client or "
           "options.cppClient)";
  }
  return std::nullopt;
}

void completeOptions(PaymentWindowOptions& options, const URLRequest& request) {
  if (!options.trustedCAFile.empty() && options.trustedHost.empty() && request.url) {
    options.trustedHost = hostOf(*request.url);
  }
}

WindowController startController(const PaymentWindowOptions& options, const URLRequest& request,
                                 std::shared_ptr<IPGPaymentControllerDelegate> host,
                                 PostToWindowThread post,
                                 const std::shared_ptr<WindowPorts>& window,
                                 const std::shared_ptr<TimerSchedulerPort>& timers) {
  WindowController started;
  const std::optional<WindowClient> client = windowClient(options);
  started.controller = WebviewController::create(client ? client->config : options.gateway);
  started.controller->setRequest(request);
  started.onPageLoad = options.onPageLoad;
  // A payment whose journal entry cannot be written does not start: nothing loads, and its
  // window is not reported opened (it would never be reported ended).
  std::optional<JournalEntryWritten> written;
  if (options.journal) {
    written = writeJournalEntry(options, client);
    if (!written->journal) {
      started.notStarted = failedStatus("the payment was not started: " + written->problem);
      started.delegate = host;
      return started;
    }
  }
  PaymentWindowOptions wired = options;
  std::shared_ptr<const CallEvents> events = windowEvents(options, client);
  if (*events) {
    started.onPageLoad = [events, chained = std::move(started.onPageLoad)](
                             PageLoadEvent event, const std::string& uri) {
      if (event == PageLoadEvent::Finished) events->emit(events->event(EventKind::PageLoaded));
      if (chained) chained(event, uri);
    };
    if (wired.reconcile) {
      wired.reconcile->onStatus = [events, chained = std::move(wired.reconcile->onStatus)](
                                      const PaymentResponse& status) {
        Event reconciled = events->event(EventKind::Reconciled);
        reconciled.statusCode = status.statusCode().value_or("");
        reconciled.transactionRefNumber = status.transactionReferenceNo().value_or("");
        events->emit(std::move(reconciled));
        if (chained) chained(status);
      };
    }
  }
  if (written && wired.reconcile) {
    wired.reconcile->onStatus =
        [journal = written->journal, entry = written->entry,
         chained = std::move(wired.reconcile->onStatus)](const PaymentResponse& status) mutable {
          entry.status = status;
          entry.state = reconciledState(entry.operation, status).value_or(JournalState::Unknown);
          journal->reconciled(entry);
          if (chained) chained(status);
        };
  }
  started.delegate = windowDelegate(std::move(host), wired, std::move(post), client);
  if (written) {
    started.delegate = std::make_shared<JournalingDelegate>(started.delegate, written->journal,
                                                            written->entry.id);
  }
  if (*events) started.delegate = std::make_shared<EventingDelegate>(started.delegate, events);
  WebviewController& controller = *started.controller;
  controller.setDelegate(started.delegate);
  controller.setIpgWebView(window);
  controller.setNavBarView(window);
  controller.setLblNavBarTitle(window);
  controller.setPresenter(window);
  controller.setTimerScheduler(timers);
  controller.viewDidLoad();
  return started;
}

bool needsReconciliation(bool cancelled, const PaymentResponse& response) {
  return cancelled || (response.statusCode() == Text("F") && !response.orderID() &&
                       !response.transactionReferenceNo() && !response.statusDescription());
}

struct OutcomeRecorder::State {
  std::optional<PaymentOutcome> outcome;
  bool reconciling = false;
};

OutcomeRecorder::OutcomeRecorder(PaymentWindowOptions& options)
    : state_(std::make_shared<State>()) {
  state_->reconciling = options.reconcile && (options.client || options.cppClient);
  auto record = [state = state_](bool cancelled, const PaymentResponse& response) {
    if (state->outcome) return;
    state->outcome = PaymentOutcome{cancelled, response, std::nullopt};
    if (!needsReconciliation(cancelled, response)) state->reconciling = false;
  };
  delegate_ = makePaymentControllerDelegate(
      [record](const PaymentResponse& response) { record(false, response); },
      [record] { record(true, PaymentResponse()); });
  if (state_->reconciling) {
    options.reconcile->onStatus =
        [state = state_,
         chained = std::move(options.reconcile->onStatus)](const PaymentResponse& status) {
          if (state->outcome) state->outcome->reconciled = status;
          state->reconciling = false;
          if (chained) chained(status);
        };
  }
}

bool OutcomeRecorder::told() const { return state_->outcome.has_value(); }

bool OutcomeRecorder::done() const { return state_->outcome && !state_->reconciling; }

std::optional<PaymentOutcome> OutcomeRecorder::outcome() const { return state_->outcome; }

std::optional<PaymentOutcome> runToEnd(const OutcomeRecorder& recorder,
                                       const std::function<bool()>& isOpen,
                                       const RunUntil& runUntil, const RunPending& runPending,
                                       std::string* error) {
  runUntil([&] { return recorder.told() || !isOpen(); });
  // Dismissed: the delegate is told from a posted task.
  runPending([&] { return recorder.told(); });
  // A reconciliation under way answers through the main loop.
  if (recorder.told()) runUntil([&] { return recorder.done(); });
  if (!recorder.told() && error != nullptr) *error = "the payment window was closed";
  return recorder.outcome();
}

bool runningAsRoot() { return geteuid() == 0; }

bool gpuAvailable() { return access("/dev/dri/renderD128", R_OK | W_OK) == 0; }

void setEnvironmentDefault(const char* name, const char* value) { setenv(name, value, 0); }

}  // namespace qipg::internal
