// ipg journal list | reconcile: what the outcome journal holds, and settling what a crash (or a
// lost answer) left unresolved by asking the gateway's status. Nothing is ever sent again.
#include <iostream>
#include <memory>

#include "Command.h"
#include "Credentials.h"
#include "Output.h"
#include "qipg/Journal.h"

namespace ipg {
namespace {

struct JournalOptions {
  GatewayOptions gateway;
  bool unresolvedOnly = false;
  bool json = false;
  long timeoutSeconds = 60;
};

nlohmann::ordered_json entryJson(const qipg::JournalEntry& e) {
  const auto record = [](const std::optional<qipg::PaymentResponse>& r) {
    return r ? recordJson(*r) : nlohmann::ordered_json(nullptr);
  };
  nlohmann::ordered_json json = {{"id", e.id},
                                 {"operation", qipg::journalOperationName(e.operation)},
                                 {"orderID", e.orderID},
                                 {"transactionRefNumber", e.transactionRefNumber},
                                 {"amount", e.amount},
                                 {"currency", e.currency},
                                 {"transactionType", e.transactionType},
                                 {"environment", e.environment},
                                 {"baseURL", e.baseURL},
                                 {"state", qipg::journalStateName(e.state)},
                                 {"startedAt", e.startedAt},
                                 {"endedAt", e.endedAt},
                                 {"answer", record(e.answer)},
                                 {"error", nullptr},
                                 {"reconciledAt", e.reconciledAt},
                                 {"status", record(e.status)},
                                 {"reconcileError", e.reconcileError}};
  if (!e.errorKind.empty()) json["error"] = {{"kind", e.errorKind}, {"message", e.errorMessage}};
  return json;
}

// One line per entry: number, time, operation, order, reference, amount, state, and the
// gateway's word (status, else answer, else error).
void printEntry(std::ostream& out, const qipg::JournalEntry& e) {
  out << "#" << e.id << " " << e.startedAt << " " << qipg::journalOperationName(e.operation)
      << " order " << e.orderID << " ref " << (e.transactionRefNumber.empty() ? "-" : e.transactionRefNumber)
      << " amount " << (e.amount.empty() ? "-" : e.amount) << " " << qipg::journalStateName(e.state);
  const std::optional<qipg::PaymentResponse>& word = e.status ? e.status : e.answer;
  if (word) {
    out << ": " << word->statusCode().value_or("") << " " << word->statusDescription().value_or("");
  } else if (!e.errorKind.empty()) {
    out << ": " << e.errorKind << ": " << e.errorMessage;
  }
  if (!e.reconcileError.empty()) out << " (not reconciled: " << e.reconcileError << ")";
  out << "\n";
}

int print(const std::vector<qipg::JournalEntry>& entries, bool json) {
  if (json) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const qipg::JournalEntry& e : entries) all.push_back(entryJson(e));
    std::cout << jsonLine(all);
  } else {
    for (const qipg::JournalEntry& e : entries) printEntry(std::cout, e);
  }
  return std::cout.flush() ? kExitOk : kExitFailed;
}

int failWith(const std::string& command, const qipg::Error& error, bool json) {
  printError(std::cout, std::cerr, command, errorReport(error), json);
  return error.kind == qipg::ErrorKind::Config ? kExitUsage : kExitFailed;
}

qipg::Error noJournal() {
  return {qipg::ErrorKind::Config, "--no-journal names no journal to read", {}, {}, false};
}

int list(const JournalOptions& o) {
  const std::string path = journalPath(o.gateway);
  if (path.empty()) return failWith("journal list", noJournal(), o.json);
  qipg::Result<std::shared_ptr<qipg::Journal>> journal = qipg::Journal::open(path);
  if (!journal) return failWith("journal list", journal.error(), o.json);
  if (!journal.value()->notice().empty()) std::cerr << "ipg journal: " << journal.value()->notice() << "\n";
  qipg::Result<std::vector<qipg::JournalEntry>> entries = journal.value()->entries(o.unresolvedOnly);
  if (!entries) return failWith("journal list", entries.error(), o.json);
  return print(entries.value(), o.json);
}

int reconcile(const JournalOptions& o) {
  const std::string path = journalPath(o.gateway);
  if (path.empty()) return failWith("journal reconcile", noJournal(), o.json);
  qipg::Result<std::shared_ptr<qipg::Client>> made = makeClient(o.gateway, o.timeoutSeconds, path);
  if (!made) return failWith("journal reconcile", made.error(), o.json);
  const std::shared_ptr<qipg::Client>& client = made.value();
  if (!client->journal()->notice().empty()) {
    std::cerr << "ipg journal: " << client->journal()->notice() << "\n";
  }
  qipg::Result<std::vector<qipg::JournalEntry>> entries = client->reconcile().get();
  client->shutdown();
  if (!entries) return failWith("journal reconcile", entries.error(), o.json);
  if (const int printed = print(entries.value(), o.json); printed != kExitOk) return printed;
  int code = kExitOk;
  for (const qipg::JournalEntry& e : entries.value()) {
    if (e.unresolved()) return kExitNetwork;
    if (e.state == qipg::JournalState::Attention) code = kExitOutcomeUnknown;
  }
  return code;
}

}  // namespace

Command addJournalCommand(CLI::App& app) {
  auto o = std::make_shared<JournalOptions>();
  CLI::App* sub = app.add_subcommand("journal", "list or reconcile the outcome journal");
  sub->require_subcommand(1);
  sub->footer(
      "Cancels, refunds and payments are written to the journal before their request leaves,\n"
      "and their end when they end. An entry's state: open (no end recorded: the process\n"
      "died), unknown (ended without an answer; it may have taken effect), answered (ended\n"
      "with the gateway's answer, or with an error that certainly changed nothing), settled\n"
      "(reconciled: the gateway's status shows how it ended), attention (reconciled, but the\n"
      "status does not show the cancel or refund: a person must decide).\n"
      "--json prints one array of objects: id, operation, orderID, transactionRefNumber,\n"
      "amount, currency, transactionType, environment, baseURL, state, startedAt, endedAt,\n"
      "answer (a record or null), error ({kind, message} or null), reconciledAt, status (the\n"
      "gateway's status record as ipg status --json prints it, or null), reconcileError.\n"
      "Exit status of list: 0, 1 when the journal cannot be read. Of reconcile: 0 every\n"
      "unresolved entry is settled (or there was none); 5 some need attention; 3 the status of\n"
      "some could not be had (they stay unresolved); 1 or 2 as for ipg status.\n");
  CLI::App* listing = sub->add_subcommand("list", "print the journal's entries, oldest first");
  listing->add_flag("--unresolved", o->unresolvedOnly, "only open and unknown entries");
  listing->add_flag("--json", o->json, "one JSON array");
  CLI::App* settling = sub->add_subcommand(
      "reconcile", "ask the gateway's status of every unresolved entry and record it");
  settling->add_flag("--json", o->json, "one JSON array of the entries looked at");
  settling->add_option("--timeout", o->timeoutSeconds, "time limit per status call in seconds")
      ->check(CLI::Range(1L, 3600L));
  addGatewayOptions(*settling, o->gateway);
  // list needs only the journal's file.
  auto* file = listing->add_option("--journal", o->gateway.journal, "the journal (default as ipg refund)");
  listing->add_flag("--no-journal", o->gateway.noJournal)->excludes(file)->group("");
  return {sub, [o, listing] { return listing->parsed() ? list(*o) : reconcile(*o); }};
}

}  // namespace ipg
