// The exported parameter sets, defined in this one file so that they are built at
// library load in this order.
#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"

GainPolyParametersSet s_gainPolyParametersSet;
OffsetDynamicParametersSet s_OffsetDynamicParametersSet;
OffsetTimeGridParametersSet s_OffsetTimeGridParametersSet;
