#include "tools/OptionRefusal.h"

#include <CLI/CLI.hpp>
#include <map>

#include "tools/StatementError.h"

namespace PimrpTool {
namespace {

// The option of `app` named `name` ("--shm", "-h"); null when there is none.
const CLI::Option* optionNamed(const CLI::App& app, const std::string& name) {
  for (const CLI::Option* option : app.get_options()) {
    if (option->nonpositional() && option->check_name(name)) return option;
  }
  return nullptr;
}

// Whether the argument is a value rather than an option: '-' alone (standard input) and negative
// numbers are values.
bool isValue(const std::string& arg) {
  return arg.size() < 2 || arg[0] != '-' || (arg[1] >= '0' && arg[1] <= '9');
}

// Whether the option may be given more than once, each time with its own value.
bool repeatable(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

}  // namespace

std::string optionRefusal(const CLI::App& app, const std::vector<std::string>& args) {
  std::map<const CLI::Option*, int> given;
  std::size_t files = 0;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || isValue(arg)) {
      if (++files > 1) return "unexpected argument " + quoted(arg) + ": give at most one FILE";
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const std::size_t equals = arg.find('=');
    const std::string name = arg.substr(0, equals);
    const CLI::Option* option = optionNamed(app, name);
    if (option == nullptr) return "unknown option " + quoted(name);
    if (option->get_items_expected_max() == 0) {
      if (equals != std::string::npos) return name + " takes no value: give " + name + " alone";
      continue;
    }
    const std::string value = option->get_type_name();
    if (++given[option] > 1 && !repeatable(*option)) {
      return name + " given more than once: give one " + value;
    }
    if (equals != std::string::npos) {
      if (equals + 1 == arg.size()) return "missing " + value + " after " + name;
      continue;
    }
    if (i + 1 == args.size() || !isValue(args[i + 1])) return "missing " + value + " after " + name;
    ++i;
  }
  return "";
}

}  // namespace PimrpTool
