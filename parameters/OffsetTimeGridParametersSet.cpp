#include "parameters/OffsetTimeGridParametersSet.h"

OffsetTimeGridParametersSet::OffsetTimeGridParametersSet() {
    const OffsetParameters grid{{0.5f, 1.0f, 1.5f, 2.0f, 2.5f},
                                {20, 40, 60, 80, 100},
                                {0.1f, 0.2f, 0.3f, 0.4f, 0.5f}};
    row("Birch") = grid;
    row("Cedar") = grid;
}
