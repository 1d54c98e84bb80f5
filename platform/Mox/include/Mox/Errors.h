// The errors that the framework throws at callers that break a rule of an entity.
//
// None of them is ever caused by bytes from the network.
#pragma once

#include <stdexcept>
#include <string>

#include <MoxBase/Export.h>

namespace Mox {

class MOX_PUBLIC Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~Error() override;
};

// An object of this name exists, and was constructed with something else.
class MOX_PUBLIC NameInUseError final : public Error {
 public:
  // `attribute` is the construction attribute that differs, for instance "_sourceTimer".
  NameInUseError(std::string attribute, const std::string& wanted, const std::string& current);
  ~NameInUseError() override;
  const std::string& attribute() const { return attribute_; }

 private:
  std::string attribute_;
};

// An attribute or collection of a read-only copy was written.
class MOX_PUBLIC ReadOnlyError final : public Error {
 public:
  explicit ReadOnlyError(const std::string& attribute);
  ~ReadOnlyError() override;
};

// A text or number that no value of the type has.
class MOX_PUBLIC RangeError final : public Error {
 public:
  using Error::Error;
  ~RangeError() override;
};

// The framework was used in a way that its rules exclude.
class MOX_PUBLIC InternalError final : public Error {
 public:
  using Error::Error;
  ~InternalError() override;
};

}  // namespace Mox
