#pragma once
// Kel::AssertionException and KEL_ASSERT: a broken internal invariant is a programming error.
//
// The exception carries the asserted expression exactly as written in the source (what() returns
// it), the trace file of the unit that asserted, the source line and the function's full signature.
// Nothing in the library catches it.

#include <string>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"

namespace Kel {

class AssertionException : public Exception {
 public:
  AssertionException(std::string expression, std::string traceFile, int line, std::string function)
      : Exception(expression),
        expression_(std::move(expression)),
        traceFile_(std::move(traceFile)),
        line_(line),
        function_(std::move(function)) {}

  const std::string& expression() const { return expression_; }
  const std::string& traceFile() const { return traceFile_; }
  int line() const { return line_; }
  const std::string& function() const { return function_; }

 private:
  std::string expression_;
  std::string traceFile_;
  int line_;
  std::string function_;
};

}  // namespace Kel

// KEL_ASSERT(traceHandle, expression): throws Kel::AssertionException when expression is false.
#define KEL_ASSERT(handle, ...)                                                \
  do {                                                                         \
    if (!(__VA_ARGS__)) {                                                      \
      throw ::Kel::AssertionException(#__VA_ARGS__, (handle).name(), __LINE__, \
                                      __PRETTY_FUNCTION__);                    \
    }                                                                          \
  } while (0)
