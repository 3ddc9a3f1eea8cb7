#pragma once
// The small PIM value types shared by every RP unit: Mode, RpPriority, RpHashMaskLen, RpType and
// RpHashAlgorithm, each with its text form and a parser of that form.
//
// Invariants:
//  1. Lower RpPriority values rank higher; valid candidates carry 0..255 and kRpPriorityNone (256)
//     stands for "no RP" or "not configured".
//  2. RpHashMaskLen is 0..32 for IPv4 and 0..128 for IPv6; kRpHashMaskLenNone (128) is what an
//     absent RP carries, and what a static RP without a configured length carries.
//  3. Parsers accept exactly what the printers write and throw Kel::ParseException quoting the
//     text otherwise.

#include <ostream>

#include "framework/Kel/String.h"
#include "framework/Kel/Types.h"

namespace Routing {
namespace Pim {

enum Mode : U32 {
  modePimNone = 0,
  modePimSm = 1,
  modePimBidir = 2,
};

typedef U32 RpPriority;
typedef U32 RpHashMaskLen;

constexpr RpPriority kRpPriorityNone = 256;
constexpr RpHashMaskLen kRpHashMaskLenNone = 128;

// The kind of a candidate status: which writer fills it.
enum RpType : U32 {
  rpTypeUnknown = 0,
  rpTypeStatic = 1,
  rpTypeBsr = 2,
};

// How a group is spread over equally ranked candidates.
enum RpHashAlgorithm : U32 {
  rpHashAlgorithmRfc7761 = 0,
  rpHashAlgorithmModulo = 1,
};

// Text forms: the enumerator names ("modePimSm"); numbers in decimal.
Kel::String modeToStrep(Mode mode);
Kel::String rpTypeToStrep(RpType type);
Kel::String rpHashAlgorithmToStrep(RpHashAlgorithm algorithm);
std::ostream& operator<<(std::ostream& out, Mode mode);
std::ostream& operator<<(std::ostream& out, RpType type);
std::ostream& operator<<(std::ostream& out, RpHashAlgorithm algorithm);

Mode modeFromStrep(const Kel::String& text);
RpType rpTypeFromStrep(const Kel::String& text);
RpHashAlgorithm rpHashAlgorithmFromStrep(const Kel::String& text);
// Decimal, no sign, no blanks, within 0..max; the message names `what` and the text.
U32 unsignedFromStrep(const Kel::String& text, U32 max, const char* what);
// "True" or "False".
bool boolFromStrep(const Kel::String& text);
Kel::String boolToStrep(bool value);

}  // namespace Pim
}  // namespace Routing
