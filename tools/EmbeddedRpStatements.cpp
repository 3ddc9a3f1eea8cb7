#include "tools/EmbeddedRpStatements.h"

#include <string>

#include "model/Pim/EmbeddedRp.h"
#include "tools/StatementError.h"
#include "tools/ValueWords.h"

namespace PimrpTool {
namespace {

constexpr std::uint64_t kMaxLimit = 4294967295ull;

const char kGroupRange[] = "embedded-RP group range";

void checkGroupRange(const Prefix& range) {
  const Ipkit::IpGenPrefix& space = Routing::Pim::EmbeddedRp::groupSpace();
  if (space.contains(range.value)) return;
  throw StatementError(std::string(kGroupRange) + " " + quoted(range.word) + " is not within " +
                       space.valueToStrep() + ": only groups there name their own RP");
}

}  // namespace

Statement parseEmbeddedRp(WordCursor& cursor) {
  const std::string setting = takeChoice(cursor, {"enable", "disable", "limit", "group-range"});
  Statement statement = EmbeddedRpEnableStatement{setting == "enable"};
  if (setting == "limit") {
    statement = EmbeddedRpLimitStatement{takeNumber(cursor, "embedded-RP limit")};
  } else if (setting == "group-range") {
    statement = EmbeddedRpGroupRangeStatement{takeGroupRange(cursor, kGroupRange)};
  }
  cursor.expectEnd();
  return statement;
}

Statement parseNoEmbeddedRp(WordCursor& cursor) {
  takeChoice(cursor, {"group-range"});
  NoEmbeddedRpGroupRangeStatement statement{takeGroupRange(cursor, kGroupRange)};
  cursor.expectEnd();
  return statement;
}

Statement parseShowEmbeddedRp(WordCursor& cursor) {
  return ShowEmbeddedRpStatement{takeVrfAndEnd(cursor)};
}

void checkEmbeddedRp(const EmbeddedRpEnableStatement&) {}

void checkEmbeddedRp(const EmbeddedRpLimitStatement& s) {
  if (s.limit.value <= kMaxLimit) return;
  throw StatementError("embedded-RP limit " + quoted(s.limit.word) + " out of range 0.." +
                       std::to_string(kMaxLimit));
}

void checkEmbeddedRp(const EmbeddedRpGroupRangeStatement& s) { checkGroupRange(s.range); }

// A removal that could never match anything is a typo, as for every other removal.
void checkEmbeddedRp(const NoEmbeddedRpGroupRangeStatement& s) { checkGroupRange(s.range); }

void checkEmbeddedRp(const ShowEmbeddedRpStatement&) {}

}  // namespace PimrpTool
