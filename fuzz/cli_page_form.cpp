// ipg's reading of a gateway page's form, on arbitrary page text: it never fails, every field
// it reports has a name, and a form written with escaped values reads back exactly.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "PageForm.h"

namespace {

std::string escaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string action = in.ConsumeRandomLengthString(64);
  const std::string name = in.ConsumeRandomLengthString(32);
  const std::string value = in.ConsumeRandomLengthString(64);
  const std::string page = in.ConsumeRemainingBytesAsString();

  if (const auto form = ipg::firstForm(page)) {
    for (const auto& field : form->fields) {
      if (field.name.empty()) std::abort();
    }
  }
  (void)ipg::firstParagraph(page);

  if (name.empty()) return 0;
  const std::string written = "<p>x</p><form method=\"post\" action=\"" + escaped(action) +
                              "\"><input type=\"hidden\" name=\"" + escaped(name) + "\" value=\"" +
                              escaped(value) + "\"></form>";
  const auto form = ipg::firstForm(written);
  if (!form || form->action != action || form->fields.size() != 1 || form->fields[0].name != name ||
      form->fields[0].value != value) {
    std::abort();
  }
  return 0;
}
