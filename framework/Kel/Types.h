#pragma once
// The framework's fixed-width integer names. They sit in the global namespace, as the agent's code
// base has always had them, so that function signatures read (and print) as "U32 ...".

#include <cstdint>

typedef std::uint32_t U32;
typedef std::uint64_t U64;
