#pragma once

#include "options/NumberParameter.h"

namespace quorval {

// An option holding a double, stored as text in `format` ("%.4f", so 440 is "440.0000").
// Thread: as Parameter.
class DoubleParameter : public NumberParameter<double>
{
public:
    using NumberParameter::NumberParameter;

    Kind kind() const override { return Kind::Double; }
};

} // namespace quorval
