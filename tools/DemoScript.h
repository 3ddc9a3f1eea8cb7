#pragma once
// The script that pimrp runs when given no file: a small configuration that shows static group
// ranges, an access list, bootstrap candidates, an override, a bidirectional RP and the modulo
// rule, with the show statements that explain them.

namespace PimrpTool {

const char* demoScript();

}  // namespace PimrpTool
