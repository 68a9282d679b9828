// Turning a POST request into a page that posts itself.
//
// Some embedded browsers (WebKitGTK 6.0 among them) load a request's address and headers but
// cannot attach a body. A form page that re-posts the body does the same job: each field of
// the form-encoded body becomes a hidden input holding the field's decoded value, so that
// when the browser encodes the form again the gateway decodes exactly the text the original
// body carried. Line breaks inside values (the envelope has a CR LF every 76 characters) are
// written as character references so the HTML parser keeps them as they are.
//
// Header-only on purpose: the GTK adapter (a separate library) and the unit tests both use it.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qipg::internal {

using FormFields = std::vector<std::pair<std::string, std::string>>;

// application/x-www-form-urlencoded decoding of one name or value: "+" is a blank and "%XX"
// a byte; a "%" not followed by two hexadecimal digits stays as it is.
inline std::string formDecode(std::string_view text) {
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+') {
      out += ' ';
    } else if (c == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 && hex(text[i + 2]) >= 0) {
      out += static_cast<char>(hex(text[i + 1]) * 16 + hex(text[i + 2]));
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

// The fields of a form-encoded body, decoded, in order. Pairs are separated by "&" and split
// at their first "="; a pair without "=" is a name with an empty value; empty pairs are
// skipped.
inline FormFields parseFormBody(std::string_view body) {
  FormFields fields;
  while (!body.empty()) {
    const std::size_t amp = body.find('&');
    const std::string_view pair = body.substr(0, amp);
    body = amp == std::string_view::npos ? std::string_view() : body.substr(amp + 1);
    if (pair.empty()) continue;
    const std::size_t eq = pair.find('=');
    if (eq == std::string_view::npos) {
      fields.emplace_back(formDecode(pair), std::string());
    } else {
      fields.emplace_back(formDecode(pair.substr(0, eq)), formDecode(pair.substr(eq + 1)));
    }
  }
  return fields;
}

// Text made safe inside a double-quoted HTML attribute or element content. Tab, CR and LF
// become character references, which the HTML parser does not normalise.
inline std::string htmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\t':
        out += "&#9;";
        break;
      case '\n':
        out += "&#10;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// "scheme://host[:port]/" of an absolute URL (user information dropped); empty when `url`
// has no "scheme://authority".
inline std::string originOf(std::string_view url) {
  const std::size_t sep = url.find("://");
  if (sep == std::string_view::npos || sep == 0) return {};
  const std::size_t start = sep + 3;
  std::size_t end = url.find_first_of("/?#", start);
  if (end == std::string_view::npos) end = url.size();
  std::string_view authority = url.substr(start, end - start);
  const std::size_t at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  if (authority.empty()) return {};
  return std::string(url.substr(0, start)) + std::string(authority) + "/";
}

// A blank page whose form posts `body`'s fields to `action` as soon as the page has loaded.
// The submission runs from the load event, after the page itself has finished loading, so a
// browser reports the form page's load and the POST as two loads, one after the other.
inline std::string autoPostPage(std::string_view action, std::string_view body) {
  std::string page =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width\">"
      "<title></title></head>\n<body style=\"margin:0;background:#fff\">\n"
      "<form id=\"qipg-post\" method=\"post\" accept-charset=\"UTF-8\" "
      "enctype=\"application/x-www-form-urlencoded\" action=\"";
  page += htmlEscape(action);
  page += "\">\n";
  for (const auto& [name, value] : parseFormBody(body)) {
    page += "<input type=\"hidden\" name=\"" + htmlEscape(name) + "\" value=\"" +
            htmlEscape(value) + "\">\n";
  }
  page +=
      "</form>\n<script>window.addEventListener('load', function () {\n"
      "  setTimeout(function () {\n"
      "    HTMLFormElement.prototype.submit.call(document.getElementById('qipg-post'));\n"
      "  }, 0);\n});</script>\n</body></html>\n";
  return page;
}

}  // namespace qipg::internal
