#pragma once

#include "options/NumberParameter.h"

namespace quorval {

// An option holding a whole number, stored as its decimal text. Thread: as Parameter.
class IntParameter : public NumberParameter<qint64>
{
public:
    using NumberParameter::NumberParameter;

    Kind kind() const override { return Kind::Int; }
};

} // namespace quorval
