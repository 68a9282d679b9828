#include "ScriptedPayment.h"

#include <curl/curl.h>

#include <memory>
#include <regex>
#include <vector>

#include "Credentials.h"
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

struct Field {
  std::string name;
  std::string value;
};

struct Form {
  std::string action;
  std::vector<Field> fields;
};

std::size_t collect(char* data, std::size_t size, std::size_t count, void* out) {
  auto* page = static_cast<std::string*>(out);
  if (page->size() + size * count > kLargestPage) return 0;
  page->append(data, size * count);
  return size * count;
}

std::string unescapeHtml(std::string text) {
  static const std::pair<const char*, const char*> entities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
  for (const auto& [entity, plain] : entities) {
    for (std::size_t at = text.find(entity); at != std::string::npos;
         at = text.find(entity, at + 1)) {
      text.replace(at, std::char_traits<char>::length(entity), plain);
    }
  }
  return text;
}

std::string attribute(const std::string& tag, const std::string& name) {
  const std::regex pattern("\\b" + name + "=\"([^\"]*)\"", std::regex::icase);
  std::smatch m;
  return std::regex_search(tag, m, pattern) ? unescapeHtml(m[1].str()) : std::string();
}

// The first form of the page with its named inputs; absent when the page has none.
std::optional<Form> firstForm(const std::string& html) {
  static const std::regex formTag("<form\\b[^>]*>", std::regex::icase);
  static const std::regex inputTag("<input\\b[^>]*>", std::regex::icase);
  std::smatch m;
  if (!std::regex_search(html, m, formTag)) return std::nullopt;
  Form form{attribute(m.str(), "action"), {}};
  const std::size_t end = html.find("</form>", static_cast<std::size_t>(m.position()));
  const std::string body = html.substr(static_cast<std::size_t>(m.position()),
                                       end == std::string::npos ? std::string::npos
                                                                : end - m.position());
  for (auto it = std::sregex_iterator(body.begin(), body.end(), inputTag);
       it != std::sregex_iterator(); ++it) {
    const std::string name = attribute(it->str(), "name");
    if (!name.empty()) form.fields.push_back({name, attribute(it->str(), "value")});
  }
  return form;
}

// The text of the page's first paragraph, tags removed: the reason on the gateway's refusals.
std::string firstParagraph(const std::string& html) {
  static const std::regex paragraph("<p\\b[^>]*>([\\s\\S]*?)</p>", std::regex::icase);
  static const std::regex tag("<[^>]*>");
  std::smatch m;
  if (!std::regex_search(html, m, paragraph)) return "no reason given";
  return unescapeHtml(std::regex_replace(m[1].str(), tag, ""));
}

class Browser {
 public:
  explicit Browser(const qipg::GatewayConfig& config)
      : curl_(curl_easy_init(), &curl_easy_cleanup), caFile_(config.caFile) {}

  bool ready() const { return curl_ != nullptr; }

  // POSTs `body` to `url`; absent with a reason when there is no answer.
  std::optional<Page> post(const std::string& url, const std::string& body,
                           const std::vector<std::string>& headers, std::string& error) {
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
    curl_easy_setopt(c, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!caFile_.empty()) curl_easy_setopt(c, CURLOPT_CAINFO, caFile_.c_str());
    const CURLcode result = curl_easy_perform(c);
    if (result != CURLE_OK) {
      error = "the gateway at " + url + " did not answer: " + curl_easy_strerror(result);
      return std::nullopt;
    }
    char* effective = nullptr;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &page.status);
    curl_easy_getinfo(c, CURLINFO_EFFECTIVE_URL, &effective);
    page.url = effective != nullptr ? effective : url;
    return page;
  }

  // `text` percent-encoded for a form body.
  std::string escape(const std::string& text) {
    char* escaped = curl_easy_escape(curl_.get(), text.c_str(), static_cast<int>(text.size()));
    std::string out = escaped != nullptr ? escaped : "";
    curl_free(escaped);
    return out;
  }

 private:
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
  std::string caFile_;
};

// `action` resolved against `base`, by libcurl's URL parser.
std::string resolve(const std::string& base, const std::string& action) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
  char* text = nullptr;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK ||
      curl_url_set(url.get(), CURLUPART_URL, action.c_str(), 0) != CURLUE_OK ||
      curl_url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
    return {};
  }
  std::string out = text;
  curl_free(text);
  return out;
}

// The form's body as a browser encodes it, with the card filled in; absent when the form asks
// for a card and there is none.
std::optional<std::string> formBody(Browser& browser, const Form& form, const CardDetails* card) {
  std::string body;
  for (const Field& field : form.fields) {
    const std::string* value = &field.value;
    if (card != nullptr) {
      if (field.name == "cardNumber") value = &card->number;
      if (field.name == "expiry") value = &card->expiry;
      if (field.name == "cvv") value = &card->cvv;
      if (field.name == "holder") value = &card->holder;
    } else if (field.name == "cardNumber") {
      return std::nullopt;
    }
    body += (body.empty() ? "" : "&") + browser.escape(field.name) + "=" + browser.escape(*value);
  }
  return body;
}

}  // namespace

CardDetails::~CardDetails() {
  for (std::string* secret : {&number, &expiry, &cvv, &holder}) wipe(*secret);
}

std::optional<qipg::PaymentResponse> payWithoutWindow(const qipg::URLRequest& request,
                                                      const CardDetails* card,
                                                      const qipg::GatewayConfig& config,
                                                      std::string& error) {
  if (!request.url || !isLoopbackURL(*request.url)) {
    error = "a payment without a window is for a test gateway on this machine only, not " +
            request.url.value_or("(no URL)");
    return std::nullopt;
  }
  Browser browser(config);
  if (!browser.ready()) {
    error = "cannot start libcurl";
    return std::nullopt;
  }
  const auto controller = qipg::WebviewController::create(config);
  std::vector<std::string> headers;
  for (const auto& [name, value] : request.allHTTPHeaderFields) headers.push_back(name + ": " + value);
  headers.push_back("Expect:");
  std::optional<Page> page = browser.post(*request.url, request.bodyText(), headers, error);
  for (int step = 0; page && step < kMostPages; ++step) {
    if (page->url == controller->testFinalPageURL() ||
        page->url == controller->productionFinalPageURL()) {
      const qipg::Text result = qipg::WebviewController::extractResponseFromHtmlString(page->html);
      if (!result) {
        error = "the final page has no result element (HTTP " + std::to_string(page->status) + ")";
        return std::nullopt;
      }
      return qipg::CommonUtilities().getPaymentResponseFromString(result);
    }
    const std::optional<Form> form = firstForm(page->html);
    if (!form) {
      error = "the gateway refused the payment (HTTP " + std::to_string(page->status) +
              "): " + firstParagraph(page->html);
      return std::nullopt;
    }
    std::optional<std::string> body = formBody(browser, *form, card);
    if (!body) {
      error = "the card form needs a card: give --test-card, --card-file, --card-stdin or "
              "QIPG_CARD_*";
      return std::nullopt;
    }
    const std::string action = resolve(page->url, form->action);
    if (!isLoopbackURL(action)) {
      error = "the form posts to a host that is not on this machine: " + action;
      wipe(*body);
      return std::nullopt;
    }
    page = browser.post(action, *body,
                        {"Content-Type: application/x-www-form-urlencoded", "Expect:"}, error);
    wipe(*body);
  }
  if (page) error = "no final page after " + std::to_string(kMostPages) + " pages";
  return std::nullopt;
}

}  // namespace ipg
