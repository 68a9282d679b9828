#include "PageForm.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace ipg {
namespace {

std::string lowerCase(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string unescapeHtml(std::string_view text) {
  static const std::pair<std::string_view, char> entities[] = {
      {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&#39;", '\''}};
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto entity = std::find_if(std::begin(entities), std::end(entities), [&](const auto& e) {
      return text.substr(i, e.first.size()) == e.first;
    });
    if (entity == std::end(entities)) {
      out += text[i];
    } else {
      out += entity->second;
      i += entity->first.size() - 1;
    }
  }
  return out;
}

// The start of the next tag named `name` ("<name" then a blank, "/" or ">") at or after `from`
// in the lower-case page; npos when none.
std::size_t findTag(const std::string& lower, std::string_view name, std::size_t from) {
  const std::string open = "<" + std::string(name);
  for (std::size_t at = lower.find(open, from); at != std::string::npos;
       at = lower.find(open, at + 1)) {
    const std::size_t after = at + open.size();
    if (after >= lower.size()) return std::string::npos;
    const char c = lower[after];
    if (c == '>' || c == '/' || std::isspace(static_cast<unsigned char>(c))) return at;
  }
  return std::string::npos;
}

// The value of attribute `name` (lower case) in the tag text `tag` of the page; "" when none.
std::string attribute(std::string_view tag, std::string_view lowerTag, std::string_view name) {
  const std::string key = std::string(name) + "=\"";
  for (std::size_t at = lowerTag.find(key); at != std::string_view::npos;
       at = lowerTag.find(key, at + 1)) {
    if (at == 0 || !std::isspace(static_cast<unsigned char>(lowerTag[at - 1]))) continue;
    const std::size_t start = at + key.size();
    const std::size_t end = tag.find('"', start);
    if (end == std::string_view::npos) return {};
    return unescapeHtml(tag.substr(start, end - start));
  }
  return {};
}

}  // namespace

std::optional<PageForm> firstForm(std::string_view html) {
  const std::string lower = lowerCase(html);
  const std::size_t form = findTag(lower, "form", 0);
  if (form == std::string::npos) return std::nullopt;
  const std::size_t formEnd = std::min(lower.find('>', form), html.size());
  PageForm result;
  result.action = attribute(html.substr(form, formEnd - form),
                            std::string_view(lower).substr(form, formEnd - form), "action");
  const std::size_t close = std::min(lower.find("</form", formEnd), html.size());
  for (std::size_t at = findTag(lower, "input", formEnd); at < close;
       at = findTag(lower, "input", at + 1)) {
    const std::size_t end = std::min(lower.find('>', at), html.size());
    const std::string_view tag = html.substr(at, end - at);
    const std::string_view lowerTag = std::string_view(lower).substr(at, end - at);
    std::string name = attribute(tag, lowerTag, "name");
    if (!name.empty())
      result.fields.push_back({std::move(name), attribute(tag, lowerTag, "value")});
  }
  return result;
}

std::string firstParagraph(std::string_view html) {
  const std::string lower = lowerCase(html);
  const std::size_t p = findTag(lower, "p", 0);
  if (p == std::string::npos) return {};
  const std::size_t start = std::min(lower.find('>', p), html.size());
  const std::size_t end = std::min(lower.find("</p>", start), html.size());
  std::string text;
  bool inTag = false;
  for (std::size_t i = start + (start < html.size() ? 1 : 0); i < end; ++i) {
    if (html[i] == '<') inTag = true;
    if (!inTag) text += html[i];
    if (html[i] == '>') inTag = false;
  }
  return unescapeHtml(text);
}

}  // namespace ipg
