#pragma once
// pimrp's own account of a command line that its option parser refused: the parser's messages
// are written for programmers ("At Most 1 required but received 2"); an operator is told which
// option and what is wrong with it.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace PimrpTool {

// What is wrong with `args` (the arguments after the program's name) for the options of `app`:
// the first unknown option, flag given a value, option without its value, option given more
// than once that may be given once, or FILE after the first. Empty when none of these is found.
// An option's value is never taken from an argument that names an option: `--shm --json` lacks
// its NAME, although the parser would take '--json' for it.
std::string optionRefusal(const CLI::App& app, const std::vector<std::string>& args);

}  // namespace PimrpTool
