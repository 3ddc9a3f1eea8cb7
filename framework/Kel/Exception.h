#pragma once
// The framework's exceptions.
//
// Kel::Exception        base of everything the framework throws; what() is the full message.
// Kel::RangeException   a value refused by a mutator or a constructor (null entity, out-of-range
//                       number); the message is the exact refusal text.
// Kel::ParseException   text that does not parse as the value asked for; the message quotes it.
// Kel::AssertionException lives in Assert.h.

#include <stdexcept>
#include <string>

namespace Kel {

class Exception : public std::runtime_error {
 public:
  explicit Exception(const std::string& message) : std::runtime_error(message) {}
};

class RangeException : public Exception {
 public:
  explicit RangeException(const std::string& message) : Exception(message) {}
};

class ParseException : public Exception {
 public:
  explicit ParseException(const std::string& message) : Exception(message) {}
};

// The refusal of a generated mutator given a null entity where one is required, e.g.
// "null _crpSet parameter to mutator for Routing::Pim::RpHashIntermediateSm::crpSet not allowed".
template <class P>
void requireEntity(const P& entity, const std::string& className, const std::string& attribute) {
  if (!entity) {
    throw RangeException("null _" + attribute + " parameter to mutator for " + className +
                         "::" + attribute + " not allowed");
  }
}

}  // namespace Kel
