// Reading a payment page's form the way a browser submits it: the form's action and its named
// inputs with their values. Only what the gateway's plain pages use: double-quoted attributes,
// the entities &amp; &lt; &gt; &quot; &#39;. Any text is read without fault.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ipg {

struct PageForm {
  struct Field {
    std::string name;
    std::string value;
  };
  std::string action;
  std::vector<Field> fields;  // every <input> with a name, in page order
};

// The page's first form; absent when it has none.
std::optional<PageForm> firstForm(std::string_view html);

// The text of the page's first paragraph, tags removed and entities decoded ("" when none):
// the reason on the gateway's refusal pages.
std::string firstParagraph(std::string_view html);

}  // namespace ipg
