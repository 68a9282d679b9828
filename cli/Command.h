// The ipg tool's commands. Each command lives in its own file and registers itself:
//
//   static const ipg::Registration reg{{"status", "ask the gateway for a transaction's status",
//                                       usageText, &runStatus}};
//
// A command gets its arguments after its name and returns the process's exit code.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ipg {

using Args = std::vector<std::string>;

struct Command {
  std::string name;     // "envelope", "status", ...
  std::string summary;  // one line for `ipg --help`
  std::string usage;    // the full text for `ipg help NAME` and `ipg NAME --help`
  int (*run)(const Args& args);
};

struct Registration {
  explicit Registration(Command command);
};

const std::vector<Command>& commands();

// Small helpers shared by the commands.

// True when `args` holds "--help" or "-h".
bool wantsHelp(const Args& args);

// The value after `--name` (or in `--name=value`); absent when the flag is not there.
std::optional<std::string> flagValue(const Args& args, std::string_view name);

// True when the bare flag `--name` is there.
bool hasFlag(const Args& args, std::string_view name);

// One line about the first argument that is neither one of `valueFlags` (`--name VALUE` or
// `--name=VALUE`) nor one of `bareFlags` (`--name`); absent when all are known.
using FlagSet = std::set<std::string, std::less<>>;
std::optional<std::string> unknownArgument(const Args& args, const FlagSet& valueFlags,
                                           const FlagSet& bareFlags);

// Masks all but the last four characters of a card number; a CVV or key is masked whole.
std::string maskCardNumber(std::string_view cardNumber);
std::string maskSecret(std::string_view secret);

}  // namespace ipg
