#include "Pages.h"

#include "Text.h"

namespace qipg::sandbox::internal {
namespace {

constexpr char kStyle[] =
    "body{font-family:system-ui,-apple-system,'Segoe UI',Roboto,sans-serif;background:#f3f5f8;"
    "color:#1f2933;margin:0}"
    ".banner{background:#b54708;color:#fff;text-align:center;padding:.5em;font-size:.9em}"
    "main{max-width:30em;margin:2em auto;background:#fff;border-radius:8px;"
    "box-shadow:0 1px 4px rgba(0,0,0,.12);padding:1.5em 2em}"
    "h1{font-size:1.3em;margin-top:0}"
    "label{display:block;margin:.8em 0 .2em;font-weight:600;font-size:.9em}"
    "input{width:100%;box-sizing:border-box;padding:.5em;border:1px solid #c5ccd6;"
    "border-radius:4px;font-size:1em}"
    "button{margin-top:1.2em;width:100%;padding:.7em;border:0;border-radius:4px;"
    "background:#1d4ed8;color:#fff;font-size:1em;cursor:pointer}"
    "table{width:100%;border-collapse:collapse}"
    "td{padding:.35em .2em;border-bottom:1px solid #eef1f5;vertical-align:top}"
    "td:first-child{color:#52606d;white-space:nowrap}"
    ".ok{color:#067647}.fail{color:#b42318}.note{color:#52606d;font-size:.85em}"
    "code{background:#eef1f5;padding:0 .2em;border-radius:3px}";

std::string amountText(const TxnRecord& r) {
  return formatAmount(r.amountMinor) + " " + r.currency;
}

std::string tokenForm(const TxnRecord& r, const std::string& fieldsHtml,
                      const std::string& button) {
  return std::string("<form method=\"post\" action=\"") + kBasePath +
         "paymentInvoice\" autocomplete=\"off\">"
         "<input type=\"hidden\" name=\"token\" value=\"" +
         htmlEscape(r.token) + "\">" + fieldsHtml + "<button type=\"submit\">" +
         htmlEscape(button) + "</button></form>";
}

std::string row(const std::string& label, const std::string& value) {
  return "<tr><td>" + htmlEscape(label) + "</td><td>" + htmlEscape(value) + "</td></tr>";
}

std::string merchantLine(const TxnRecord& r) {
  return "<p class=\"note\">Merchant " + htmlEscape(r.mid) + " &middot; order " +
         htmlEscape(r.orderId) + (r.requestType == "P" ? " &middot; authorisation only" : "") +
         "</p>";
}

}  // namespace

std::string page(const std::string& title, const std::string& bodyHtml) {
  return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
         "<title>" +
         htmlEscape(title) + "</title><style>" + kStyle +
         "</style></head>\n<body><div class=\"banner\">Quandrel IPG sandbox \u2014 no real money "
         "moves</div>\n<main>" +
         bodyHtml + "</main></body></html>\n";
}

std::string errorPage(const std::string& heading, const std::string& reason) {
  return page(heading, "<h1 class=\"fail\">" + htmlEscape(heading) + "</h1><p>" +
                           htmlEscape(reason) + "</p>");
}

std::string cardFormPage(const TxnRecord& r) {
  const std::string fields =
      "<label for=\"cardNumber\">Card number</label>"
      "<input id=\"cardNumber\" name=\"cardNumber\" inputmode=\"numeric\" "
      "autocomplete=\"cc-number\" pattern=\"[0-9 ]{12,23}\" required>"
      "<label for=\"expiry\">Expiry (MMYY)</label>"
      "<input id=\"expiry\" name=\"expiry\" inputmode=\"numeric\" autocomplete=\"cc-exp\" "
      "pattern=\"[0-9]{4}\" maxlength=\"4\" placeholder=\"MMYY\" required>"
      "<label for=\"cvv\">CVV</label>"
      "<input id=\"cvv\" name=\"cvv\" inputmode=\"numeric\" autocomplete=\"cc-csc\" "
      "pattern=\"[0-9]{3,4}\" maxlength=\"4\" required>"
      "<label for=\"holder\">Name on card</label>"
      "<input id=\"holder\" name=\"holder\" autocomplete=\"cc-name\" maxlength=\"50\" required>";
  const std::string body =
      "<h1>Pay " + htmlEscape(amountText(r)) + "</h1>" + merchantLine(r) +
      tokenForm(r, fields, "Pay " + amountText(r)) +
      "<p class=\"note\">Test cards: <code>4111111111111111</code> succeeds, "
      "<code>4000000000000002</code> is declined, <code>4000000000009995</code> fails with a "
      "gateway error. Any expiry from this month on, any 3-digit CVV.</p>";
  return page("Quandrel IPG sandbox: pay " + amountText(r), body);
}

std::string confirmationPage(const TxnRecord& r) {
  std::string summary;
  std::string button = "Pay " + amountText(r);
  std::string problem;
  if (r.payType == "NB") {
    summary = "Pay " + amountText(r) + " by net banking (bank " + r.bankCode + ")";
  } else if (r.preparedOutcome == "invalid") {
    summary = "Pay " + amountText(r) + " by card";
    problem =
        "<p class=\"fail\">This card cannot be charged: " + htmlEscape(r.preparedReason) + "</p>";
    button = "Continue";
  } else {
    summary = "Pay " + amountText(r) + " with card ending " + r.cardLast4;
  }
  const std::string body = "<h1>Confirm your payment</h1>" + merchantLine(r) +
                           "<p class=\"summary\">" + htmlEscape(summary) + "</p>" + problem +
                           tokenForm(r, "", button);
  return page("Quandrel IPG sandbox: confirm payment", body);
}

std::string finalPage(const TxnRecord& r, const std::string& resultString, bool ownResponseUrl) {
  // The hidden element comes first, exactly as the client's payment page looks for it.
  std::string body =
      "<div id=\"responseString\" style=\"display: none;\">" + htmlEscape(resultString) + "</div>";
  std::string heading = "Payment failed";
  std::string headingClass = "fail";
  if (r.resultCode == "S") {
    heading = r.requestType == "P" ? "Payment authorised" : "Payment successful";
    headingClass = "ok";
  }
  body += "<h1 class=\"" + headingClass + "\">" + heading + "</h1><table>";
  body += row("Order", r.orderId);
  body += row("Reference number", r.referenceNo);
  body += row("Amount", amountText(r));
  body += row("Status", r.resultCode + " \u2014 " + r.resultDesc);
  if (r.payType == "NB") {
    body += row("Net banking", r.bankCode);
  } else if (!r.cardMasked.empty()) {
    body += row("Card", r.cardMasked);
  }
  if (!r.rrn.empty()) body += row("RRN", r.rrn);
  if (!r.authzCode.empty()) body += row("Authorisation code", r.authzCode);
  body += row("Date (UTC)", r.completedAt);
  body += "</table>";
  if (!ownResponseUrl &&
      (r.responseUrl.rfind("https://", 0) == 0 || r.responseUrl.rfind("http://", 0) == 0)) {
    body += "<p class=\"note\"><a href=\"" + htmlEscape(r.responseUrl) +
            "\">Return to the merchant</a></p>";
  }
  return page("Quandrel IPG sandbox: payment result", body);
}

std::string indexPage(const std::string& baseURL, const std::string& environment) {
  const std::string body =
      "<h1>Quandrel IPG sandbox</h1>"
      "<p>Base URL <code>" +
      htmlEscape(baseURL) + "</code> (" + htmlEscape(environment) + " environment).</p><table>" +
      row("getTransactionStatus", "status inquiry (sealed answer)") +
      row("doCancelRequest", "cancel an authorisation (sealed answer)") +
      row("doRefundRequest", "refund a captured payment (sealed answer)") +
      row("doMEPayRequest", "standard payment: card form") +
      row("doMEPayRequestCard", "card-capture payment: confirmation") +
      row("paymentInvoice", "final page with the result") +
      "</table><p class=\"note\">Test cards: 4111111111111111 and 5555555555554444 succeed, "
      "4000000000000002 is declined, 4000000000009995 fails with a gateway error; any other "
      "well-formed number is declined as unknown.</p>";
  return page("Quandrel IPG sandbox", body);
}

}  // namespace qipg::sandbox::internal
