#include "ScriptedPayment.h"

#include <curl/curl.h>

#include <memory>
#include <vector>

#include "Credentials.h"
#include "PageForm.h"
#include "common/Url.h"
#include "qipg/CommonUtilities.h"
#include "qipg/WebviewController.h"

namespace ipg {
namespace {

constexpr int kMostPages = 5;
constexpr std::size_t kLargestPage = 4u << 20;

struct Page {
  long status = 0;
  std::string url;  // where the page was finally loaded from
  std::string html;
};

std::size_t collect(char* data, std::size_t size, std::size_t count, void* out) {
  auto* page = static_cast<std::string*>(out);
  if (page->size() + size * count > kLargestPage) return 0;
  page->append(data, size * count);
  return size * count;
}

// Why a page did not come, and whether its request left before.
qipg::ErrorKind kindOf(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return qipg::ErrorKind::Timeout;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      return qipg::ErrorKind::Tls;
    default:
      return qipg::ErrorKind::Network;
  }
}

class Browser {
 public:
  Browser(const std::string& caFile, long timeoutSeconds)
      : curl_(curl_easy_init(), &curl_easy_cleanup),
        caFile_(caFile),
        timeoutSeconds_(timeoutSeconds) {}

  bool ready() const { return curl_ != nullptr; }

  // POSTs `body` to `url`; absent when there is no answer, with the reason in `outcome`.
  std::optional<Page> post(const std::string& url, const std::string& body,
                           const std::vector<std::string>& headers, ScriptedOutcome& outcome) {
    CURL* c = curl_.get();
    curl_easy_reset(c);
    Page page;
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> list(nullptr, &curl_slist_free_all);
    for (const std::string& header : headers) {
      list.reset(curl_slist_append(list.release(), header.c_str()));
    }
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &page.html);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 10L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT, timeoutSeconds_);
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!caFile_.empty()) curl_easy_setopt(c, CURLOPT_CAINFO, caFile_.c_str());
    const CURLcode result = curl_easy_perform(c);
    if (result != CURLE_OK) {
      long sent = 0;
      curl_easy_getinfo(c, CURLINFO_REQUEST_SIZE, &sent);
      outcome.kind = kindOf(result);
      outcome.error = "the gateway at " + url + " did not answer: " + curl_easy_strerror(result);
      outcome.unclear = sent > 0;
      return std::nullopt;
    }
    char* effective = nullptr;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &page.status);
    curl_easy_getinfo(c, CURLINFO_EFFECTIVE_URL, &effective);
    page.url = effective != nullptr ? effective : url;
    return page;
  }

  // `text` percent-encoded for a form body. It may be card data: libcurl's copy is cleared
  // before it is freed.
  std::string escape(const std::string& text) {
    char* escaped = curl_easy_escape(curl_.get(), text.c_str(), static_cast<int>(text.size()));
    if (escaped == nullptr) return {};
    std::string out = escaped;
    for (volatile char* byte = escaped; *byte != '\0'; ++byte) *byte = '\0';
    curl_free(escaped);
    return out;
  }

 private:
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
  std::string caFile_;
  long timeoutSeconds_;
};

// `action` resolved against `base`, by libcurl's URL parser.
std::string resolve(const std::string& base, const std::string& action) {
  const qipg::internal::UrlHandle url = qipg::internal::parseURL(base, 0);
  if (!url || curl_url_set(url.get(), CURLUPART_URL, action.c_str(), 0) != CURLUE_OK) return {};
  return qipg::internal::urlPart(url, CURLUPART_URL).value_or("");
}

// The form's body as a browser encodes it, with the card filled in; absent when the form asks
// for a card and there is none.
std::optional<std::string> formBody(Browser& browser, const PageForm& form,
                                    const CardDetails* card) {
  std::string body;
  body.reserve(4096);  // one buffer, so no copy of the card is left behind by a reallocation
  for (const PageForm::Field& field : form.fields) {
    const std::string* value = &field.value;
    if (card != nullptr) {
      if (field.name == "cardNumber") value = &card->number;
      if (field.name == "expiry") value = &card->expiry;
      if (field.name == "cvv") value = &card->cvv;
      if (field.name == "holder") value = &card->holder;
    } else if (field.name == "cardNumber") {
      return std::nullopt;
    }
    std::string encoded = browser.escape(*value);
    if (!body.empty()) body += '&';
    body += browser.escape(field.name);
    body += '=';
    body += encoded;
    wipe(encoded);
  }
  return body;
}

}  // namespace

CardDetails::~CardDetails() {
  for (std::string* secret : {&number, &expiry, &cvv, &holder}) wipe(*secret);
}

ScriptedOutcome payWithoutWindow(const qipg::URLRequest& request, const CardDetails* card,
                                 const std::string& finalPageURL, const std::string& caFile,
                                 long timeoutSeconds, const std::function<void()>& pageLoaded) {
  ScriptedOutcome outcome;
  auto fail = [&outcome](qipg::ErrorKind kind, std::string error) {
    outcome.kind = kind;
    outcome.error = std::move(error);
    return outcome;
  };
  if (!request.url || !qipg::internal::hasLoopbackHost(*request.url)) {
    return fail(qipg::ErrorKind::Config,
                "a payment without a window is for a test gateway on this machine only, not " +
                    request.url.value_or("(no URL)"));
  }
  Browser browser(caFile, timeoutSeconds);
  if (!browser.ready()) return fail(qipg::ErrorKind::Config, "cannot start libcurl");
  std::vector<std::string> headers;
  for (const auto& [name, value] : request.allHTTPHeaderFields)
    headers.push_back(name + ": " + value);
  headers.push_back("Expect:");
  std::optional<Page> page = browser.post(*request.url, request.bodyText(), headers, outcome);
  for (int step = 0; page && step < kMostPages; ++step) {
    if (pageLoaded) pageLoaded();
    if (page->url == finalPageURL) {
      const qipg::Text result = qipg::WebviewController::extractResponseFromHtmlString(page->html);
      const qipg::PaymentResponse record =
          qipg::CommonUtilities().getPaymentResponseFromString(result);
      if (!result || (record.statusCode() == qipg::Text("F") && !record.orderID() &&
                      !record.transactionReferenceNo() && !record.statusDescription())) {
        outcome.unclear = true;
        return fail(qipg::ErrorKind::Unreadable, "the final page holds no readable result (HTTP " +
                                                     std::to_string(page->status) + ")");
      }
      outcome.record = record;
      return outcome;
    }
    const std::optional<PageForm> form = firstForm(page->html);
    if (!form) {
      const std::string reason = firstParagraph(page->html);
      if (page->status != 200) outcome.httpStatus = page->status;
      return fail(page->status != 200 ? qipg::ErrorKind::Http : qipg::ErrorKind::Unreadable,
                  "the gateway refused the payment (HTTP " + std::to_string(page->status) +
                      "): " + (reason.empty() ? "no reason given" : reason));
    }
    std::optional<std::string> body = formBody(browser, *form, card);
    if (!body) {
      return fail(qipg::ErrorKind::Input,
                  "the card form needs a card: give --test-card, --card-file, --card-stdin or "
                  "QIPG_CARD_*");
    }
    const std::string action = resolve(page->url, form->action);
    if (!qipg::internal::hasLoopbackHost(action)) {
      wipe(*body);
      return fail(qipg::ErrorKind::Config,
                  "the form posts to a host that is not on this machine: " + action);
    }
    page = browser.post(action, *body,
                        {"Content-Type: application/x-www-form-urlencoded", "Expect:"}, outcome);
    wipe(*body);
  }
  if (page) {
    return fail(qipg::ErrorKind::Unreadable,
                "no final page after " + std::to_string(kMostPages) + " pages");
  }
  return outcome;
}

}  // namespace ipg
