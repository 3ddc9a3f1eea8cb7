#pragma once
// Refusals: what a call that must be refused throws. Every suite checks a refusal through these,
// comparing the exact message (or the exception's other parts) with what the code promises:
//
//   EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { table.rpHashIs(bad); }),
//             "exact message");
//
// An exception of another type than the one named is not caught, so the test fails naming it.

#include <optional>
#include <string>

namespace TestSupport {

// The exception of type E that `call` throws, or nothing when it returns normally.
template <class E, class Call>
std::optional<E> thrownBy(Call&& call) {
  try {
    call();
  } catch (const E& thrown) {
    return thrown;
  }
  return std::nullopt;
}

// The message of the exception of type E that `call` throws, or "" when it returns normally.
template <class E, class Call>
std::string refusalOf(Call&& call) {
  const std::optional<E> thrown = thrownBy<E>(call);
  return thrown ? thrown->what() : "";
}

}  // namespace TestSupport
