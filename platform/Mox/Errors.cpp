#include <Mox/Errors.h>

#include <utility>

namespace Mox {

Error::~Error() = default;

NameInUseError::NameInUseError(std::string attribute, const std::string& wanted,
                               const std::string& current)
    : Error("Reinstantiating the pointer interface where constructor parameter attribute " +
            attribute + " has a different value of " + wanted + " than the current value of " +
            current + " not allowed"),
      attribute_(std::move(attribute)) {}
NameInUseError::~NameInUseError() = default;

ReadOnlyError::ReadOnlyError(const std::string& attribute)
    : Error("attribute " + attribute + " is read-only") {}
ReadOnlyError::~ReadOnlyError() = default;

RangeError::~RangeError() = default;
InternalError::~InternalError() = default;

}  // namespace Mox
