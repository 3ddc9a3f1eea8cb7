#include "model/Pim/PimTypes.h"

#include <array>
#include <utility>

#include "framework/Kel/Exception.h"

namespace Routing {
namespace Pim {
namespace {

template <class E, std::size_t N>
Kel::String nameOf(E value, const std::array<std::pair<E, const char*>, N>& names) {
  for (const auto& [candidate, name] : names) {
    if (candidate == value) return name;
  }
  // Values outside the named ones still print, so that a trace never hides what was stored.
  return std::to_string(static_cast<U32>(value));
}

template <class E, std::size_t N>
E valueOf(const Kel::String& text, const std::array<std::pair<E, const char*>, N>& names,
          const char* what) {
  for (const auto& [candidate, name] : names) {
    if (text == name) return candidate;
  }
  throw Kel::ParseException(Kel::String("invalid ") + what + " '" + text + "'");
}

const std::array<std::pair<Mode, const char*>, 3> kModeNames{{
    {modePimNone, "modePimNone"},
    {modePimSm, "modePimSm"},
    {modePimBidir, "modePimBidir"},
}};

const std::array<std::pair<RpType, const char*>, 3> kRpTypeNames{{
    {rpTypeUnknown, "rpTypeUnknown"},
    {rpTypeStatic, "rpTypeStatic"},
    {rpTypeBsr, "rpTypeBsr"},
}};

const std::array<std::pair<RpHashAlgorithm, const char*>, 2> kRpHashAlgorithmNames{{
    {rpHashAlgorithmRfc7761, "rpHashAlgorithmRfc7761"},
    {rpHashAlgorithmModulo, "rpHashAlgorithmModulo"},
}};

}  // namespace

Kel::String modeToStrep(Mode mode) { return nameOf(mode, kModeNames); }
Kel::String rpTypeToStrep(RpType type) { return nameOf(type, kRpTypeNames); }
Kel::String rpHashAlgorithmToStrep(RpHashAlgorithm algorithm) {
  return nameOf(algorithm, kRpHashAlgorithmNames);
}

std::ostream& operator<<(std::ostream& out, Mode mode) { return out << modeToStrep(mode); }
std::ostream& operator<<(std::ostream& out, RpType type) { return out << rpTypeToStrep(type); }
std::ostream& operator<<(std::ostream& out, RpHashAlgorithm algorithm) {
  return out << rpHashAlgorithmToStrep(algorithm);
}

Mode modeFromStrep(const Kel::String& text) { return valueOf(text, kModeNames, "mode"); }
RpType rpTypeFromStrep(const Kel::String& text) { return valueOf(text, kRpTypeNames, "RP type"); }
RpHashAlgorithm rpHashAlgorithmFromStrep(const Kel::String& text) {
  return valueOf(text, kRpHashAlgorithmNames, "RP hash algorithm");
}

U32 unsignedFromStrep(const Kel::String& text, U32 max, const char* what) {
  const auto refuse = [&](const char* why) {
    throw Kel::ParseException(Kel::String("invalid ") + what + " '" + text + "': " + why);
  };
  if (text.empty()) refuse("not a number");
  U64 value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') refuse("not a number");
    value = value * 10 + static_cast<U64>(c - '0');
    if (value > max) refuse(("above " + std::to_string(max)).c_str());
  }
  return static_cast<U32>(value);
}

bool boolFromStrep(const Kel::String& text) {
  if (text == "True") return true;
  if (text == "False") return false;
  throw Kel::ParseException("invalid boolean '" + text + "': expected True or False");
}

Kel::String boolToStrep(bool value) { return value ? "True" : "False"; }

}  // namespace Pim
}  // namespace Routing
