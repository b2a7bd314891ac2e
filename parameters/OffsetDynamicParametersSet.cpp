#include "parameters/OffsetDynamicParametersSet.h"

OffsetDynamicParametersSet::OffsetDynamicParametersSet() {
    row("").Weight = 0.125f;
}
