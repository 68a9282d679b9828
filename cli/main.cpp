// ipg: the Quandrel IPG command-line tool.
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "Command.h"

namespace ipg {
namespace {

std::vector<Command>& registry() {
  static std::vector<Command> list;
  return list;
}

void printOverview(std::ostream& out) {
  out << "usage: ipg COMMAND [ARGS...]\n\n"
         "Quandrel IPG command-line tool: a debugging aid for merchant developers.\n\n"
         "commands:\n";
  std::vector<Command> sorted = commands();
  std::sort(sorted.begin(), sorted.end(),
            [](const Command& a, const Command& b) { return a.name < b.name; });
  for (const Command& c : sorted) {
    out << "  " << c.name << std::string(c.name.size() < 10 ? 10 - c.name.size() : 1, ' ')
        << c.summary << "\n";
  }
  out << "\nRun `ipg help COMMAND` or `ipg COMMAND --help` for a command's options.\n";
}

const Command* find(std::string_view name) {
  for (const Command& c : commands()) {
    if (c.name == name) return &c;
  }
  return nullptr;
}

}  // namespace

Registration::Registration(Command command) { registry().push_back(std::move(command)); }

const std::vector<Command>& commands() { return registry(); }

bool wantsHelp(const Args& args) {
  return std::any_of(args.begin(), args.end(),
                     [](const std::string& a) { return a == "--help" || a == "-h"; });
}

std::optional<std::string> flagValue(const Args& args, std::string_view name) {
  const std::string flag = "--" + std::string(name);
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == flag && i + 1 < args.size()) return args[i + 1];
    if (args[i].rfind(flag + "=", 0) == 0) return args[i].substr(flag.size() + 1);
  }
  return std::nullopt;
}

bool hasFlag(const Args& args, std::string_view name) {
  const std::string flag = "--" + std::string(name);
  return std::find(args.begin(), args.end(), flag) != args.end();
}

std::optional<std::string> unknownArgument(const Args& args, const FlagSet& valueFlags,
                                           const FlagSet& bareFlags) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.rfind("--", 0) != 0) return "unexpected argument \"" + arg + "\"";
    const std::size_t equals = arg.find('=');
    const std::string_view name = std::string_view(arg).substr(2, equals - 2);
    if (valueFlags.count(name) != 0) {
      if (equals == std::string::npos) {
        if (i + 1 >= args.size()) return "--" + std::string(name) + " needs a value";
        ++i;
      }
    } else if (bareFlags.count(name) == 0 || equals != std::string::npos) {
      return "unknown option " + std::string(arg.substr(0, equals));
    }
  }
  return std::nullopt;
}

std::string maskCardNumber(std::string_view cardNumber) {
  if (cardNumber.size() <= 4) return std::string(cardNumber.size(), '*');
  return std::string(cardNumber.size() - 4, '*') + std::string(cardNumber.substr(cardNumber.size() - 4));
}

std::string maskSecret(std::string_view secret) { return secret.empty() ? "" : "********"; }

}  // namespace ipg

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    ipg::printOverview(args.empty() ? std::cerr : std::cout);
    return args.empty() ? 2 : 0;
  }
  if (args[0] == "help") {
    if (args.size() < 2) {
      ipg::printOverview(std::cout);
      return 0;
    }
    if (const ipg::Command* c = ipg::find(args[1])) {
      std::cout << c->usage;
      return 0;
    }
    std::cerr << "ipg: no such command: " << args[1] << "\n";
    return 2;
  }
  const ipg::Command* command = ipg::find(args[0]);
  if (command == nullptr) {
    std::cerr << "ipg: no such command: " << args[0] << " (see ipg --help)\n";
    return 2;
  }
  ipg::Args rest(args.begin() + 1, args.end());
  if (ipg::wantsHelp(rest)) {
    std::cout << command->usage;
    return 0;
  }
  return command->run(rest);
}
