#pragma once
// The embedded-RP statements of the pimrp script language: how the parser reads them and what
// the Validator checks of them (StatementParser and Validation dispatch here).
//
//   embedded-rp enable | disable
//   embedded-rp limit N                   N 0..4294967295: at most N groups use embedded RP
//   embedded-rp group-range PREFIX        only groups of the ranges given may (default: all)
//   no embedded-rp group-range PREFIX
//   show embedded-rp [vrf NAME]
//
// A group range must lie within ff70::/12, where the groups that name their RP are.

#include "tools/Statement.h"
#include "tools/Words.h"

namespace PimrpTool {

// After the keyword `embedded-rp`.
Statement parseEmbeddedRp(WordCursor& cursor);
// After the keywords `no embedded-rp`.
Statement parseNoEmbeddedRp(WordCursor& cursor);
// After the keywords `show embedded-rp`.
Statement parseShowEmbeddedRp(WordCursor& cursor);

// Each throws StatementError naming what is wrong, or returns.
void checkEmbeddedRp(const EmbeddedRpEnableStatement& s);
void checkEmbeddedRp(const EmbeddedRpLimitStatement& s);
void checkEmbeddedRp(const EmbeddedRpGroupRangeStatement& s);
void checkEmbeddedRp(const NoEmbeddedRpGroupRangeStatement& s);
void checkEmbeddedRp(const ShowEmbeddedRpStatement& s);

}  // namespace PimrpTool
