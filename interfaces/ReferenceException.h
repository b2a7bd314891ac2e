#ifndef ORVANE_INTERFACES_REFERENCEEXCEPTION_H
#define ORVANE_INTERFACES_REFERENCEEXCEPTION_H

#include "interfaces/BaseException.h"

// A reference store refused an operation.
class ReferenceException : public BaseExceptionSimple<ReferenceException> {
public:
    using BaseExceptionSimple<ReferenceException>::BaseExceptionSimple;
    ~ReferenceException() override;
};

#endif
