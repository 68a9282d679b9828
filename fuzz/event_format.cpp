// An event's log line, from any order ID, reference and base URL (the texts that come from
// outside): it is one line of printable ASCII, and reading its fields back gives the event's
// texts unchanged, so no value can forge another field or another line.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "FuzzedText.h"
#include "qipg/Events.h"

namespace {

// The fields of a line: key=value, a quoted value with \" \\ and \xHH escapes.
std::map<std::string, std::string> readFields(const std::string& line) {
  std::map<std::string, std::string> fields;
  std::size_t at = 0;
  while (at < line.size()) {
    const std::size_t equals = line.find('=', at);
    qipg_fuzz::expect(equals != std::string::npos);
    const std::string key = line.substr(at, equals - at);
    std::string value;
    at = equals + 1;
    if (at < line.size() && line[at] == '"') {
      for (++at;; ++at) {
        qipg_fuzz::expect(at < line.size());
        if (line[at] == '"') break;
        if (line[at] != '\\') {
          value += line[at];
          continue;
        }
        qipg_fuzz::expect(++at < line.size());
        if (line[at] == 'x') {
          qipg_fuzz::expect(at + 2 < line.size());
          value += static_cast<char>(std::stoi(line.substr(at + 1, 2), nullptr, 16));
          at += 2;
        } else {
          qipg_fuzz::expect(line[at] == '"' || line[at] == '\\');
          value += line[at];
        }
      }
      ++at;
    } else {
      const std::size_t end = line.find(' ', at);
      value = line.substr(at, end == std::string::npos ? std::string::npos : end - at);
      at += value.size();
    }
    qipg_fuzz::expect(fields.emplace(key, value).second);
    if (at < line.size()) {
      qipg_fuzz::expect(line[at] == ' ');
      ++at;
    }
  }
  return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  qipg::Event event;
  event.kind = static_cast<qipg::EventKind>(in.ConsumeIntegralInRange<int>(0, 7));
  event.callID = in.ConsumeIntegral<std::uint64_t>();
  event.operation = in.ConsumeRandomLengthString(20);
  event.orderID = in.ConsumeRandomLengthString(80);
  event.transactionRefNumber = in.ConsumeRandomLengthString(80);
  event.statusCode = in.ConsumeRandomLengthString(8);
  event.baseURL = in.ConsumeRemainingBytesAsString();

  const std::string line = qipg::formatEvent(event);
  for (const char c : line) qipg_fuzz::expect(c >= ' ' && c < 0x7f);
  std::map<std::string, std::string> fields = readFields(line);
  const std::pair<const char*, const std::string*> texts[] = {{"operation", &event.operation},
                                                              {"order", &event.orderID},
                                                              {"ref", &event.transactionRefNumber},
                                                              {"status", &event.statusCode},
                                                              {"base", &event.baseURL}};
  for (const auto& [key, value] : texts) {
    qipg_fuzz::expect(value->empty() ? fields.count(key) == 0 : fields[key] == *value);
  }
  return 0;
}
